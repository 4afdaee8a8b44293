#include "output/failure_subject.h"

#include <points/address.h>

#include <algorithm>

using Points::Role;

namespace {

QString hintFor(const Points::Profile& profile, const QString& failure, int exception = 0)
{
    const auto it = std::find_if(profile.hints.begin(), profile.hints.end(), [&](const auto& hint) {
        return hint.failure == failure && (hint.exception == 0 || hint.exception == exception);
    });
    return it != profile.hints.end() ? it->text : QString();
}

// As many as it reads or writes.
int quantityOf(const Points::CommandProfile& profile, const ParameterMap& parameters)
{
    bool isNumber = false;
    const int count = parameters.value(profile.parameterOf(Role::Count)).toInt(&isNumber);
    const QVariant data = parameters.value(profile.parameterOf(Role::Data));
    if (isNumber || !data.isValid()) {
        return isNumber ? count : -1;
    }
    return data.userType() == QMetaType::QVariantList ? data.toList().size() : 1;
}

// A number that looks like an old one, which counts from 1, where numbers count from 0.
QString oldNumberHint(const Points::Profile& profile, const Points::CommandProfile& command,
                      const ParameterMap& parameters)
{
    const QString kind = parameters.value(command.parameterOf(Role::Kind)).toString();
    const QString number = parameters.value(command.parameterOf(Role::Address)).toString();
    const Points::Table* table = profile.tableOf(command.use, kind);
    const Points::AddressReading old = Points::addressFrom(number, profile);
    const bool isMeant = table != nullptr && old.address && old.address->table == table;
    return isMeant ? QStringLiteral("numbers count from 0 here: the old number %1 is %2:%3")
                         .arg(number, table->name, QString::number(old.address->number))
                   : QString();
}

} // namespace

FailureSubject subjectOf(const Points::Profile& profile, const QString& command,
                         const ParameterMap& parameters, const OrderFailure& failure)
{
    FailureSubject subject;
    subject.parameters = parameters;
    const Points::CommandProfile* known = profile.command(command);
    subject.hint = hintFor(profile, OrderFailure::codeName(failure.code), failure.exceptionCode);
    if (known == nullptr) {
        return subject;
    }
    subject.title = known->parameterOf(Role::Address);
    subject.place = parameters.value(subject.title).toString();
    subject.quantity = quantityOf(*known, parameters);
    if (failure.code == OrderFailure::Code::DeviceException && subject.hint.isEmpty()) {
        subject.hint = oldNumberHint(profile, *known, parameters);
    }
    return subject;
}

QString lossHint(const Points::Profile& profile, const OrderFailure& loss)
{
    return loss.byKeepAlive ? hintFor(profile, QStringLiteral("keep_alive_lost")) : QString();
}

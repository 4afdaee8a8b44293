#include "output/failure_text.h"

#include "output/value_text.h"

#include <QStringList>

namespace {

using Code = OrderFailure::Code;

QString inBrackets(const QStringList& parts)
{
    return parts.isEmpty() ? QString()
                           : QStringLiteral(" (%1)").arg(parts.join(QLatin1String(", ")));
}

// What the device was asked for; empty when nothing is known of it.
QString target(const OrderFailure& failure, const FailureSubject& subject)
{
    QStringList parts;
    if (!subject.place.isEmpty()) {
        parts.append(subject.title + QLatin1Char(' ') + subject.place);
    }
    if (subject.quantity >= 0) {
        const char* unit = subject.quantity == 1 ? "value" : "values";
        parts.append(QStringLiteral("%1 %2").arg(subject.quantity).arg(QLatin1String(unit)));
    }
    if (failure.unitId >= 0) {
        parts.append(QStringLiteral("unit %1").arg(failure.unitId));
    }
    return inBrackets(parts);
}

// A module's refusal seldom tells which parameter it means, so all are shown.
QString allParameters(const ParameterMap& parameters)
{
    QStringList parts;
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
        parts.append(QStringLiteral("%1 %2").arg(it.key(), plainText(it.value())));
    }
    return inBrackets(parts);
}

QString reason(const OrderFailure& failure)
{
    if (!failure.text.isEmpty()) {
        return failure.text;
    }
    switch (failure.code) {
    case Code::NotConnected:
        return QStringLiteral("there is no connection to the device");
    case Code::Timeout:
        return QStringLiteral("the device did not answer in time");
    case Code::DeviceException:
        return QStringLiteral("the device answered exception %1").arg(failure.exceptionCode);
    case Code::BadReply:
        return QStringLiteral("the device's reply was not one to this request");
    case Code::Stopped:
        return QStringLiteral("it was stopped");
    case Code::Usage:
    case Code::None:
        break;
    }
    return QStringLiteral("the module refused the order");
}

bool isRefusal(Code code) { return code == Code::None || code == Code::Usage; }

QString subjectText(const OrderFailure& failure, const FailureSubject& subject)
{
    if (failure.code == Code::NotConnected) {
        return QString(); // it never came to asking
    }
    if (!isRefusal(failure.code)) {
        return target(failure, subject);
    }
    return subject.moduleMessage.isEmpty()
        ? QString()
        : QLatin1String(": ") + subject.moduleMessage + allParameters(subject.parameters);
}

// Whoever knows better has said what to do: that the device is on, for one, when it was refused.
bool hasAdvice(const OrderFailure& failure) { return failure.text.contains(QLatin1String("; ")); }

// A device that has answered serves its unit.
QString timeoutAdvice(const OrderFailure& failure, const FailureSubject& subject)
{
    if (subject.hasAnswered) {
        return QStringLiteral("; it has answered before, so it is busy, or has just gone");
    }
    return failure.unitId >= 0
        ? QStringLiteral("; a device that does not serve unit %1 looks just like one that is "
                         "switched off")
              .arg(failure.unitId)
        : QStringLiteral("; check that the device is on and reachable");
}

QString advice(const QString& command, const OrderFailure& failure, const FailureSubject& subject)
{
    if (!subject.hint.isEmpty()) {
        return QLatin1String("; ") + subject.hint;
    }
    switch (failure.code) {
    case Code::BadReply:
        return QStringLiteral("; --verbose shows the reply and what the module says of it");
    case Code::Timeout:
        return timeoutAdvice(failure, subject);
    case Code::NotConnected:
        return hasAdvice(failure) ? QString()
                                  : QStringLiteral("; check that the device is on and reachable");
    case Code::None:
    case Code::Usage:
        if (!subject.moduleMessage.isEmpty()) {
            return QStringLiteral("; 'driver-host %1 --help' tells what it takes").arg(command);
        }
        return QLatin1String(failure.text.isEmpty() ? "; --verbose shows what it says" : "");
    default:
        return QString();
    }
}

QString line(const QString& command, const OrderFailure& failure, const FailureSubject& subject,
             const QString& whatToDo)
{
    return QStringLiteral("%1 failed: %2%3%4")
        .arg(command, reason(failure), subjectText(failure, subject), whatToDo);
}

} // namespace

QString failureText(const QString& command, const OrderFailure& failure,
                    const FailureSubject& subject)
{
    return line(command, failure, subject, advice(command, failure, subject));
}

QString connectFailureText(const QString& command, const OrderFailure& failure)
{
    const bool unreachable = failure.code == Code::NotConnected && !hasAdvice(failure);
    return line(command, failure, {},
                unreachable ? QStringLiteral("; check host and port, and that the device is on")
                            : advice(command, failure, {}));
}

QString noConnectionYetText(const OrderFailure& failure)
{
    return QStringLiteral("no connection yet (%1), trying again").arg(failure.text);
}

QString unconnectedFailureText(const QString& command, const OrderFailure& failure)
{
    return line(command, failure, {},
                QStringLiteral("; the device needs a running order 'connect'"));
}

QString lossText(const Points::Profile& profile, const OrderFailure& failure)
{
    const QString hint = lossHint(profile, failure);
    return QStringLiteral("connection lost: %1").arg(failure.text)
        + (hint.isEmpty() ? hint : QLatin1String("; ") + hint);
}

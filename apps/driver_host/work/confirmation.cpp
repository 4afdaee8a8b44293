#include "work/confirmation.h"

#include "output/value_text.h"

OrderFailure unconfirmed(const Points::CommandProfile& profile, const ParameterMap& results)
{
    if (!profile.confirmed) {
        return {};
    }
    const QVariantList given = results.value(profile.confirmed->result).toList();
    const QVariantList& wanted = profile.confirmed->value;
    const bool same = given.size() == wanted.size()
        && std::equal(given.cbegin(), given.cend(), wanted.cbegin(),
                      [](const auto& a, const auto& b) { return a.toString() == b.toString(); });
    const QString text =
        QStringLiteral("the device did not confirm it, %1 is %2 instead of %3: %4");
    return same ? OrderFailure()
                : OrderFailure::of(OrderFailure::Code::BadReply,
                                   text.arg(profile.confirmed->result, plainText(given),
                                            plainText(wanted), profile.confirmed->otherwise));
}

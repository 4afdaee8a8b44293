#include <plugin_management/order_failure.h>

#include <runtime/engine/map_lookup.h>

#include <array>
#include <utility>

namespace {

using Code = OrderFailure::Code;

constexpr std::array<std::pair<Code, const char*>, 6> codeNames{{
    {Code::Usage, "usage"},
    {Code::NotConnected, "not_connected"},
    {Code::Timeout, "timeout"},
    {Code::DeviceException, "device_exception"},
    {Code::BadReply, "bad_reply"},
    {Code::Stopped, "stopped"},
}};

Code codeFromName(const QString& name)
{
    for (const auto& [code, text] : codeNames) {
        if (name == QLatin1String(text)) {
            return code;
        }
    }
    return Code::BadReply;
}

} // namespace

OrderFailure OrderFailure::of(Code code, const QString& text)
{
    OrderFailure failure;
    failure.code = code;
    failure.text = text;
    return failure;
}

OrderFailure OrderFailure::usage(const QString& text) { return of(Code::Usage, text); }

OrderFailure OrderFailure::exception(int code, const QString& name)
{
    OrderFailure failure =
        of(Code::DeviceException, QStringLiteral("the device answered exception %1").arg(code));
    failure.exceptionCode = code;
    failure.text += name.isEmpty() ? QString() : QStringLiteral(", ") + name;
    return failure;
}

ParameterMap OrderFailure::toReply() const
{
    ParameterMap reply;
    reply.insert(QStringLiteral("doneOk"), false);
    reply.insert(QStringLiteral("error"), text);
    reply.insert(QStringLiteral("errorCode"), codeName(code));
    if (code == Code::DeviceException) {
        reply.insert(QStringLiteral("exceptionCode"), exceptionCode);
    }
    if (unitId >= 0) {
        reply.insert(QStringLiteral("unitId"), unitId);
    }
    return reply;
}

OrderFailure OrderFailure::fromReply(const ParameterMap& reply)
{
    const QVariant* done = findValue(reply, QStringLiteral("doneOk"));
    const QVariant* code = findValue(reply, QStringLiteral("errorCode"));
    const bool failed = code != nullptr || (done != nullptr && !done->toBool());
    if (!failed) {
        return {};
    }
    OrderFailure failure;
    failure.code = code != nullptr ? codeFromName(code->toString()) : Code::BadReply;
    failure.text = reply.value(QStringLiteral("error")).toString();
    failure.exceptionCode = reply.value(QStringLiteral("exceptionCode"), 0).toInt();
    failure.unitId = reply.value(QStringLiteral("unitId"), -1).toInt();
    return failure;
}

QString OrderFailure::codeName(Code code)
{
    for (const auto& [known, text] : codeNames) {
        if (known == code) {
            return QLatin1String(text);
        }
    }
    return QString();
}

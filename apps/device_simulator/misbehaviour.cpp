#include "misbehaviour.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

using Kind = Misbehaviour::Kind;

constexpr int LengthOffset = 5;
constexpr int UnitOffset = 6;
constexpr int FunctionOffset = 7;
constexpr char ServerDeviceFailure = 4;

constexpr std::array<std::pair<const char*, Kind>, 15> kinds{{
    {"late", Kind::Late},
    {"never", Kind::Never},
    {"half", Kind::Half},
    {"byte-by-byte", Kind::ByteByByte},
    {"twice", Kind::Twice},
    {"unasked", Kind::Unasked},
    {"other-unit", Kind::OtherUnit},
    {"other-function", Kind::OtherFunction},
    {"wrong-length", Kind::WrongLength},
    {"garbage", Kind::Garbage},
    {"exception", Kind::Exception},
    {"close-before", Kind::CloseBefore},
    {"close-within", Kind::CloseWithin},
    {"close-after", Kind::CloseAfter},
    {"reboot", Kind::Reboot},
}};

QByteArray changed(QByteArray reply, int offset, int by)
{
    reply[offset] = static_cast<char>(reply.at(offset) + by);
    return reply;
}

QByteArray exceptionTo(const QByteArray& reply)
{
    QByteArray exception = reply.left(FunctionOffset + 1);
    exception[LengthOffset] = 3; // unit id, function code, exception code
    exception[FunctionOffset] = static_cast<char>(exception.at(FunctionOffset) | 0x80);
    return exception + ServerDeviceFailure;
}

} // namespace

std::optional<Kind> Misbehaviour::kindFromName(const QString& name)
{
    const auto* const it = std::find_if(kinds.begin(), kinds.end(), [&](const auto& entry) {
        return name == QLatin1String(entry.first);
    });
    return it != kinds.end() ? std::optional<Kind>(it->second) : std::nullopt;
}

QStringList Misbehaviour::names()
{
    QStringList names;
    for (const auto& entry : kinds) {
        names.append(QLatin1String(entry.first));
    }
    return names;
}

QByteArray Misbehaviour::firstPart(const QByteArray& reply) const
{
    switch (kind) {
    case Kind::Half:
    case Kind::CloseWithin:
        return reply.left(reply.size() / 2);
    case Kind::Twice:
        return reply + reply;
    case Kind::Unasked:
        return reply + QByteArrayLiteral("unasked");
    case Kind::OtherUnit:
        return changed(reply, UnitOffset, 1);
    case Kind::OtherFunction:
        return changed(reply, FunctionOffset, 1);
    case Kind::WrongLength:
        return changed(reply, LengthOffset, -1);
    case Kind::Garbage:
        return QByteArrayLiteral("HTTP/1.0 400 Bad Request\r\n\r\n");
    case Kind::Exception:
        return exceptionTo(reply);
    case Kind::CloseAfter:
        return reply;
    default:
        return {};
    }
}

QByteArray Misbehaviour::laterPart(const QByteArray& reply) const
{
    switch (kind) {
    case Kind::Late:
        return reply;
    case Kind::Half:
        return reply.mid(reply.size() / 2);
    default:
        return {};
    }
}

#include <plugin_management/link_options.h>

#include <plugin_management/parameter_check.h>

#include <algorithm>
#include <array>

namespace {

// What is wrong with a value; nothing when it was taken.
using Reader = QString (*)(const QVariant& given, LinkOptions& options);

struct Option
{
    const char* name;
    const char* form;
    const char* description;
    Reader read;
};

template <bool LinkOptions::*flag>
QString readFlag(const QVariant& given, LinkOptions& options)
{
    QVariant value = given;
    Misfit misfit;
    if (!checkValue(QStringLiteral("bool"), value, &misfit)) {
        return QStringLiteral("'%1' is not %2").arg(misfit.given, misfit.wanted);
    }
    options.*flag = value.toBool();
    return {};
}

constexpr int largestUnit = 255;

QString readUnit(const QVariant& given, LinkOptions& options)
{
    const QString text = given.toString();
    const QVariant unit = readNumber(text);
    const bool isNumber = unit.userType() == QMetaType::Int;
    if (!isNumber || unit.toInt() < 0 || unit.toInt() > largestUnit) {
        return QStringLiteral("'%1' is not a number 0 to %2").arg(text).arg(largestUnit);
    }
    options.unit = unit.toInt();
    return {};
}

template <QString LinkOptions::*text>
QString readText(const QVariant& given, LinkOptions& options)
{
    options.*text = given.toString();
    const bool isText = given.userType() == QMetaType::QString && !(options.*text).isEmpty();
    return isText ? QString() : QStringLiteral("'%1' is not a text").arg(given.toString());
}

constexpr std::array<Option, 12> all{{
    {"keepTrying", "", "Keep trying until there is a first connection",
     readFlag<&LinkOptions::keepTrying>},
    {"unit", "0..255", "Ask this unit instead of unit 0", readUnit},
    {"transactionIds", "", "Give each request an id of its own, and take no late reply for it",
     readFlag<&LinkOptions::transactionIds>},
    {"tls", "", "Secure the connection by TLS, and check the device's certificate",
     readFlag<&LinkOptions::tls>},
    {"tlsCa", "FILE", "Believe these authorities (PEM) instead of the system's",
     readText<&LinkOptions::tlsCa>},
    {"tlsCert", "FILE", "Show this certificate (PEM)", readText<&LinkOptions::tlsCert>},
    {"tlsKey", "FILE", "Its private key (PEM)", readText<&LinkOptions::tlsKey>},
    {"tlsName", "NAME", "Name that the device's certificate must have, instead of the host's",
     readText<&LinkOptions::tlsName>},
    {"rtu", "", "Frames of a serial line with their CRC, as serial servers pass them on",
     readFlag<&LinkOptions::rtu>},
    {"share", "", "Use one connection for all devices that name the same host and port",
     readFlag<&LinkOptions::share>},
    {"serial", "DEVICE,BAUD,FORMAT", "Go by this serial line, 19200,8E1 by default, instead of TCP",
     readText<&LinkOptions::serial>},
    {"spin", "", "Look for replies for 20 us before sleeping, for devices that answer that soon",
     readFlag<&LinkOptions::spin>},
}};

QString unknown()
{
    QStringList names;
    for (const Option& option : all) {
        names.append(QLatin1String(option.name));
    }
    return QStringLiteral("there is no such link option; there are %1")
        .arg(names.join(QLatin1String(", ")));
}

} // namespace

QList<LinkOptionDescription> linkOptionDescriptions()
{
    QList<LinkOptionDescription> descriptions;
    for (const Option& option : all) {
        descriptions.append({QLatin1String(option.name), QLatin1String(option.form),
                             QLatin1String(option.description)});
    }
    return descriptions;
}

bool readLinkOptions(const ParameterMap& given, LinkOptions& options, LinkOptionFault& fault)
{
    options = {};
    for (auto it = given.cbegin(); it != given.cend(); ++it) {
        const auto* option = std::find_if(all.cbegin(), all.cend(), [&](const Option& each) {
            return it.key() == QLatin1String(each.name);
        });
        fault = {it.key(), option != all.cend() ? option->read(it.value(), options) : unknown()};
        if (!fault.text.isEmpty()) {
            return false;
        }
    }
    return true;
}

QString linkOptionsRefusal(const LinkOptions& options)
{
    const bool hasTlsOption = !options.tlsCa.isEmpty() || !options.tlsCert.isEmpty()
        || !options.tlsKey.isEmpty() || !options.tlsName.isEmpty();
    if (hasTlsOption && !options.tls) {
        return QStringLiteral("options of TLS are given, but not TLS itself ('tls')");
    }
    if (options.tlsCert.isEmpty() != options.tlsKey.isEmpty()) {
        return QStringLiteral("a certificate of one's own needs its private key as well ('tlsCert' "
                              "and 'tlsKey')");
    }
    if (!options.serial.isEmpty() && options.tls) {
        return QStringLiteral("a serial line has no TLS; leave 'tls' or 'serial' out");
    }
    const QString rtu = QLatin1String(options.serial.isEmpty() ? "'rtu'" : "'serial'");
    if (options.isRtu() && options.unit < 1) {
        return QStringLiteral("%1 needs a 'unit', 1 to 255: on a serial line unit 0 is everybody, "
                              "and nobody answers")
            .arg(rtu);
    }
    if (options.isRtu() && options.transactionIds) {
        return QStringLiteral("%1 leaves no place for 'transactionIds'").arg(rtu);
    }
    return {};
}

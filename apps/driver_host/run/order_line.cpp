#include "run/order_line.h"

#include "cli/value_parser.h"
#include "output/value_text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <array>
#include <cmath>

namespace {

using Kind = OrderLine::Kind;

constexpr double largestExact = 9007199254740991.0; // beyond, two numbers may look the same

QString idKey() { return QStringLiteral("id"); }
QString deviceKey() { return QStringLiteral("device"); }
QString commandKey() { return QStringLiteral("command"); }
QString parametersKey() { return QStringLiteral("parameters"); }
QString statisticsKey() { return QStringLiteral("statistics"); }
QString stopKey() { return QStringLiteral("stop"); }
QString linkKey() { return QStringLiteral("link"); }

Kind kindOf(const QJsonObject& object)
{
    if (object.contains(stopKey())) {
        return Kind::Stop;
    }
    if (object.contains(linkKey()) && !object.contains(commandKey())) {
        return Kind::Link;
    }
    return object.contains(statisticsKey()) ? Kind::Statistics : Kind::Order;
}

QStringList keysOf(Kind kind)
{
    switch (kind) {
    case Kind::Stop:
        return {idKey(), stopKey()};
    case Kind::Statistics:
        return {idKey(), deviceKey(), statisticsKey()};
    case Kind::Link:
        return {idKey(), deviceKey(), linkKey()};
    default:
        return {idKey(), deviceKey(), commandKey(), parametersKey()};
    }
}

QString readId(const QJsonObject& object, OrderLine& line)
{
    const QJsonValue id = object.value(idKey());
    if (id.isUndefined() && kindOf(object) == Kind::Link) {
        return {};
    }
    if (id.isUndefined()) {
        return QStringLiteral("'id' is missing");
    }
    const double number = id.toDouble();
    if (!id.isString() && (!id.isDouble() || std::floor(number) != number)) {
        return QStringLiteral("'id' is neither a text nor a whole number");
    }
    if (std::fabs(number) > largestExact) {
        return QStringLiteral("'id' is a number of more than 53 bits, which cannot be told exactly "
                              "in an answer; give it as a text");
    }
    line.id = id;
    return {};
}

QString checkKeys(const QJsonObject& object, OrderLine& line)
{
    const QStringList known = keysOf(line.kind);
    for (const QString& key : object.keys()) {
        if (!known.contains(key)) {
            return QStringLiteral("unknown key '%1'; there are %2 here")
                .arg(plainText(key), known.join(QLatin1String(", ")));
        }
    }
    return {};
}

QString readText(const QJsonObject& object, const QString& key, QString& text)
{
    text = object.value(key).toString();
    return text.isEmpty() ? QStringLiteral("'%1' is missing, empty or no text").arg(key)
                          : QString();
}

QString readDevice(const QJsonObject& object, OrderLine& line)
{
    return line.kind == Kind::Stop ? QString() : readText(object, deviceKey(), line.device);
}

QString readFlag(const QJsonObject& object, const QString& key)
{
    return object.value(key).toBool() ? QString() : QStringLiteral("'%1' is not true").arg(key);
}

QString readCommand(const QJsonObject& object, OrderLine& line)
{
    switch (line.kind) {
    case Kind::Stop:
        return readFlag(object, stopKey());
    case Kind::Statistics:
        line.command = statisticsKey();
        return readFlag(object, statisticsKey());
    case Kind::Link:
        return {};
    default:
        return readText(object, commandKey(), line.command);
    }
}

QString readParameters(const QJsonObject& object, OrderLine& line)
{
    const QString key = line.kind == Kind::Link ? linkKey() : parametersKey();
    const QJsonValue parameters = object.value(key);
    if (!parameters.isUndefined() && !parameters.isObject()) {
        return QStringLiteral("'%1' is no object").arg(key);
    }
    line.parameters = jsonVariant(parameters.toObject()).toMap();
    return {};
}

} // namespace

OrderLine parseOrderLine(const QByteArray& text)
{
    OrderLine line;
    QJsonParseError fault;
    const QJsonDocument document = QJsonDocument::fromJson(text, &fault);
    if (!document.isObject()) {
        line.error = fault.error == QJsonParseError::NoError
            ? QStringLiteral("no JSON object")
            : QStringLiteral("no JSON: %1 at byte %2").arg(fault.errorString()).arg(fault.offset);
        line.error += QStringLiteral("; 'driver-host run --help' shows the lines that it takes");
        return line;
    }
    const QJsonObject object = document.object();
    line.error = readId(object, line);
    if (!line.error.isEmpty()) {
        return line; // without an id to answer to, it is no order
    }
    line.kind = kindOf(object);
    // All are read, wrong or not, so that an answer to a wrong order can tell whose it is.
    for (const auto step : {checkKeys, readDevice, readCommand, readParameters}) {
        const QString error = step(object, line);
        line.error = line.error.isEmpty() ? error : line.error;
    }
    return line;
}

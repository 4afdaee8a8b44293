#include <runtime/link/serial/serial_settings.h>

#include <QStringList>

#include <algorithm>

namespace {

constexpr int slowest = 50;
constexpr int fastest = 4000000;

} // namespace

QString SerialSettings::load(const QString& text)
{
    QStringList parts = text.split(QLatin1Char(','));
    device = parts.takeFirst();
    if (!device.contains(QLatin1Char('/'))) {
        device.prepend(QLatin1String("/dev/"));
    }
    if (!parts.isEmpty() && parts.last() == QLatin1String("echo")) {
        echoes = true;
        parts.removeLast();
    }
    const QString speed = parts.value(0, QString::number(baud));
    const QString format = parts.value(1, QStringLiteral("8E1")).toUpper();
    static const QStringList formats =
        QStringLiteral("8N1 8N2 8E1 8E2 8O1 8O2").split(QLatin1Char(' '));
    baud = speed.toInt();
    parity = format.mid(1, 1).toLatin1().append('\0').at(0);
    stopBits = format.mid(2).toInt();
    if (baud < slowest || baud > fastest) {
        return QStringLiteral("serial: '%1' is not a number of baud, %2 to %3")
            .arg(speed, QString::number(slowest), QString::number(fastest));
    }
    if (!formats.contains(format)) {
        return QStringLiteral("serial: '%1' is not one of %2")
            .arg(format, formats.join(QLatin1String(", ")));
    }
    return parts.size() <= 2 ? QString()
                             : QStringLiteral("serial: '%1' is not DEVICE,BAUD,FORMAT").arg(text);
}

qint64 SerialSettings::durationUs(int characters) const
{
    constexpr qint64 usPerSecond = 1000000;
    const int bits = 1 + 8 + (parity == 'N' ? 0 : 1) + stopBits;
    return (qint64{characters} * bits * usPerSecond + baud - 1) / baud;
}

qint64 SerialSettings::silenceUs() const
{
    constexpr int fastBaud = 19200;
    constexpr qint64 fastUs = 1750;
    return baud > fastBaud ? fastUs : durationUs(7) / 2;
}

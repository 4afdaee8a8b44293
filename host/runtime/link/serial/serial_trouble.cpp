#include <runtime/link/serial/serial_trouble.h>

#include <QFile>
#include <QFileInfo>
#include <QSerialPort>

#include <asm/termbits.h> // the real speed; it does not go together with <termios.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace {

constexpr int tolerance = 50; // one part in so many, beyond which receivers lose their place

QString format(const SerialSettings& settings)
{
    return QStringLiteral("8%1%2").arg(QLatin1Char(settings.parity)).arg(settings.stopBits);
}

} // namespace

QString SerialTrouble::ofOpening(const QSerialPort& port, const SerialSettings& settings)
{
    const QByteArray file = QFile::encodeName(settings.device);
    if (!QFileInfo::exists(settings.device)) {
        return QStringLiteral("there is no such device; check that it is plugged in, and how the "
                              "system calls it");
    }
    if (::access(file.constData(), R_OK | W_OK) != 0) {
        return QStringLiteral("no permission for it; its group has it, mostly 'dialout': add the "
                              "user to that");
    }
    if (port.error() == QSerialPort::PermissionError) {
        return ::access("/var/lock", W_OK) == 0
            ? QStringLiteral(
                "it is in use already, and a line can be used once at a time; end what "
                "uses it")
            : QStringLiteral("it cannot be locked, as no file can be made in '/var/lock'; give "
                             "rights for that");
    }
    return QStringLiteral("it is no serial line, or not one for %1 baud with %2 (%3); check its "
                          "name, speed and format")
        .arg(QString::number(settings.baud), format(settings), port.errorString());
}

QString SerialTrouble::ofSpeed(int descriptor, int baud)
{
    termios2 real{};
    if (::ioctl(descriptor, TCGETS2, &real) != 0) {
        return {};
    }
    const auto speed = static_cast<int>(real.c_ospeed);
    return std::abs(speed - baud) <= baud / tolerance
        ? QString()
        : QStringLiteral("the line cannot do %1 baud, but %2; choose another speed")
              .arg(QString::number(baud), QString::number(speed));
}

QString SerialTrouble::gone()
{
    return QStringLiteral("the serial line has gone; check that it is plugged in");
}

QString SerialTrouble::neverSilent()
{
    return QStringLiteral("the serial line is never silent; check speed and format, and that "
                          "nobody else asks on it");
}

QString SerialTrouble::noEcho()
{
    return QStringLiteral("what came back is not what was sent; check whether the line does echo");
}

QString SerialTrouble::stuck()
{
    return QStringLiteral("the serial line takes no more bytes; check the adapter");
}

#pragma once

#include <runtime/link/serial/serial_settings.h>

class QSerialPort;

/// Why there is no serial line, in words, and what to do about it.
namespace SerialTrouble {

/// Why \a port, which should have been opened with \a settings, was not.
QString ofOpening(const QSerialPort& port, const SerialSettings& settings);
/// What the open line really does where that is too far from \a baud; else empty.
QString ofSpeed(int descriptor, int baud);
QString gone();
QString neverSilent();
QString noEcho();
QString stuck();

} // namespace SerialTrouble

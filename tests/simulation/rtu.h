#pragma once

#include <QByteArray>

/// Frames of RTU in the place of those of Modbus TCP, as a device and who watches it have them.
namespace Rtu {

/// The request with a header as that of the module; empty when its CRC is wrong.
QByteArray request(const QByteArray& wire);
/// What leaves in the place of these frames. What stands behind whole ones stays as it is.
QByteArray replies(const QByteArray& frames);
/// The frame with a wrong CRC.
QByteArray spoiled(const QByteArray& frame);

} // namespace Rtu

#pragma once

#include <QModbusServer>

/// What the simulated device holds to begin with, and what moves.
///
/// Coil n is on when n divides by 3, discrete input n when it divides by 5. Holding registers 100
/// to 109 are 0x0102, 0x0304, ... 0x1314. Input register 0 counts ticks, modulo 65536; input
/// register 1 is a sine of 100 ticks, scaled to 0 to 65535. Everything else is 0.
namespace DemonstrationRegisters {

constexpr int TickMs = 100;

void fill(QModbusServer& server);
void move(QModbusServer& server, unsigned tick);

} // namespace DemonstrationRegisters

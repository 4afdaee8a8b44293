#include "demonstration_registers.h"
#include "register_text.h"

#include <QtMath>

#include <cmath>

namespace {

using Unit = QModbusDataUnit;

constexpr unsigned SineTicks = 100;

void fillEvery(QModbusServer& server, Unit::RegisterType table, int step)
{
    Unit unit(table, 0, RegisterText::RegisterCount);
    for (int i = 0; i < RegisterText::RegisterCount; i += step) {
        unit.setValue(i, 1);
    }
    server.setData(unit);
}

quint16 sine(unsigned tick)
{
    const double angle = 2 * M_PI * (tick % SineTicks) / SineTicks;
    return static_cast<quint16>(std::lround((1 + std::sin(angle)) * 0xFFFF / 2));
}

} // namespace

void DemonstrationRegisters::fill(QModbusServer& server)
{
    fillEvery(server, Unit::Coils, 3);
    fillEvery(server, Unit::DiscreteInputs, 5);
    server.setData(
        {Unit::HoldingRegisters,
         100,
         {0x0102, 0x0304, 0x0506, 0x0708, 0x090A, 0x0B0C, 0x0D0E, 0x0F10, 0x1112, 0x1314}});
    move(server, 0);
}

void DemonstrationRegisters::move(QModbusServer& server, unsigned tick)
{
    server.setData({Unit::InputRegisters, 0, {static_cast<quint16>(tick & 0xFFFFU), sine(tick)}});
}

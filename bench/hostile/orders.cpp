#include "orders.h"

#include "frames.h"

#include <array>
#include <map>

namespace {

using namespace Frames;
using Answer = HostileDevice::Answer;

constexpr int writtenRegisters = 16; // so few that writes and reads meet
constexpr int writtenCoils = 8192; // so many that no two writes in flight are the same

Outcome judgeRead(const HostileDevice& device, const Given& given, const QVariantList& values)
{
    const QByteArray data = HostileDevice::dataAt(given.function, given.start, given.quantity);
    if (!given.readsWritable() && values == handedOut(given.function, given.quantity, data)) {
        return Right;
    }
    const auto holdsThese = [&](quint8 function, const QByteArray& answered) {
        return function == given.function && answered.size() == data.size()
            && handedOut(given.function, given.quantity, answered) == values;
    };
    const auto gaveThese = [&](const Answer& answer) {
        const bool toAnother = !given.isAnsweredBy(answer);
        return device.isRecent(answer)
            && (holdsThese(answer.function, answer.data)
                || (toAnother && holdsThese(answer.spoiledFunction, answer.spoiledData)));
    };
    const auto askedForThese = [&](const Answer& answer) {
        return given.isAnsweredBy(answer) && gaveThese(answer);
    };
    if (given.readsWritable() && device.newest(askedForThese)) {
        return Right;
    }
    return device.newest(gaveThese) ? Stale : Wrong;
}

Outcome judgeWrite(const HostileDevice& device, const Given& given, const QVariantList& values)
{
    const auto carriedOut = [&](const Answer& answer) {
        return given.isAnsweredBy(answer) && answer.function == given.function;
    };
    // A write of several registers is echoed without its data.
    const auto sameEcho = [&](const Answer& answer) {
        return answer.function == given.function && answer.start == given.start
            && answer.quantity == given.quantity && device.isRecent(answer)
            && (given.function == 16 || answer.data == given.data);
    };
    if (values == QVariantList{0}) {
        return Denied;
    }
    if (values == QVariantList{1} && device.newest(carriedOut)) {
        return Right;
    }
    return values == QVariantList{1} && device.newest(sameEcho) ? Stale : Wrong;
}

} // namespace

bool Given::readsWritable() const
{
    return function == 3 && start + quantity > HostileDevice::writableFrom;
}

bool Given::isAnsweredBy(const Answer& answer) const
{
    const bool same = (answer.function & ~exceptionBit) == function && answer.start == start
        && answer.quantity == quantity;
    const bool sameData = !writes() || answer.function != function || answer.data == data;
    return answer.number > since && same && sameData;
}

ParameterMap Given::parameters() const
{
    static const std::map<int, QString> types{
        {1, QStringLiteral("coilsRegister")},     {2, QStringLiteral("inputStatus")},
        {3, QStringLiteral("holdingRegisters")},  {4, QStringLiteral("inputRegisters")},
        {5, QStringLiteral("coilsRegister")},     {6, QStringLiteral("singleRegister")},
        {16, QStringLiteral("multipleRegisters")}};
    if (function == 17) {
        return {};
    }
    ParameterMap map{{QStringLiteral("register"), start},
                     {QStringLiteral("registerType"), types.at(function)}};
    if (writes()) {
        map.insert(QStringLiteral("data"), handedOut(function, quantity, data));
    } else {
        map.insert(QStringLiteral("dataSize"), quantity);
        map.insert(QStringLiteral("recurrentInterval"), 10);
    }
    return map;
}

QString Given::text() const
{
    return QStringLiteral("%1 of function %2, register %3, quantity %4")
        .arg(command)
        .arg(function)
        .arg(start)
        .arg(quantity);
}

Outcome judge(const HostileDevice& device, const Given& given, const QVariant& value)
{
    if (given.function == 17) {
        const QVariant info = value.toMap().value(QStringLiteral("info"));
        return info.toByteArray() == HostileDevice::identification() ? Right : Wrong;
    }
    return given.writes() ? judgeWrite(device, given, value.toList())
                          : judgeRead(device, given, value.toList());
}

Given Draw::order()
{
    const int number = below(100);
    Given given = number < 20 ? write() : read();
    given.command = number < 20 ? QStringLiteral("write")
        : number < 30           ? QStringLiteral("listen")
                                : QStringLiteral("read");
    if (number >= 98) {
        given = {};
        given.command = QStringLiteral("deviceInformation");
        given.function = 17;
    }
    return given;
}

Given Draw::read()
{
    static constexpr std::array<quint16, 6> wordCounts{1, 1, 2, 2, 10, 63};
    static constexpr std::array<quint16, 4> bitCounts{17, 25, 30, 49};
    Given given;
    given.function = static_cast<quint8>(1 + below(4));
    given.quantity = given.function <= 2 ? bitCounts[index(4)] : wordCounts[index(6)];
    given.start = static_cast<quint16>(below(HostileDevice::writableFrom - 64));
    if (oneIn(20)) {
        given.start = missing();
    } else if (given.function == 3 && given.quantity <= 2 && oneIn(2)) {
        given.start = static_cast<quint16>(HostileDevice::writableFrom + below(writtenRegisters));
    }
    return given;
}

// No two writes of registers carry the same, until the numbers begin again.
Given Draw::write()
{
    static constexpr std::array<quint8, 3> functions{5, 6, 16};
    Given given;
    given.function = functions[index(3)];
    given.quantity = given.function == 16 ? static_cast<quint16>(1 + below(4)) : quint16(1);
    const int range = given.function == 5 ? writtenCoils : writtenRegisters;
    given.start =
        oneIn(10) ? missing() : static_cast<quint16>(HostileDevice::writableFrom + below(range));
    for (int i = 0; i < given.quantity; ++i) {
        ++m_next;
        given.data.append(static_cast<char>(m_next >> 8)).append(static_cast<char>(m_next));
    }
    if (given.function == 5) {
        given.data = QByteArray(oneIn(2) ? "\xff\0" : "\0\0", 2);
    }
    return given;
}

#include "log_catcher.h"
#include "modbus_utilities.h"
#include "table.h"

namespace {

QString text(const RegisterValues& values)
{
    QStringList texts;
    for (const quint16 value : values) {
        texts.append(QString::number(value));
    }
    return '[' + texts.join(' ') + ']';
}
QString text(quint16 number) { return QString::number(number); }
QString text(bool flag) { return flag ? "true" : "false"; }

QString look(const QString& accessor, const ParameterMap& map, bool* found, bool* valid)
{
    const auto on = [&](auto function) { return text(function(77, map, found, valid, 42)); };
    const auto onList = [&](RegisterValues list) {
        const quint16 number = getOrderParameter(77, map, "a", "b", 9, found, valid, &list);
        return text(number) + text(list);
    };
    return accessor == "function" ? on(functionCodeParameter)
        : accessor == "register"  ? on(registerParameter)
        : accessor == "quantity"  ? on(quantityParameter)
        : accessor == "value"     ? on(valueParameter)
        : accessor == "valueFlag" ? on(valueFlagParameter)
        : accessor == "data"      ? on(dataParameter)
        : accessor == "values"    ? on(valuesParameter)
        : accessor == "timeout"   ? on(requestTimeoutParameter)
        : accessor == "periodic"  ? on(periodicParameter)
                                  : onList({1, 2});
}

} // namespace

class TestLookup : public QObject
{
    Q_OBJECT

private slots:
    void lookups_data() { addRows(QFINDTESTDATA("tables/lookups.txt")); }
    void lookups()
    {
        QFETCH(QStringList, cells);
        const QString call = QTest::currentDataTag();
        const QString accessor = call.section(' ', 0, 0);
        const ParameterMap map = fromJson(call.section(' ', 1)).toMap();
        const LogCatcher log;
        bool found = false;
        bool valid = true;
        const QString numbers = look(QString(accessor).remove('?'), map,
                                     accessor.endsWith('?') ? nullptr : &found, &valid);
        QCOMPARE(numbers + (found ? " found" : " missing") + (valid ? " valid" : " bad"), cells[0]);
        QCOMPARE(LogCatcher::take().join('\n'), cells.value(1));
    }

    void valuesThatNoTableHolds()
    {
        bool ok = false;
        QCOMPARE(int(variantToUInt16(QByteArray("258"), 42, &ok)), 258);
        QVERIFY(ok);
        QCOMPARE(int(variantToUInt16(QDate(2024, 1, 2), 42, &ok)), 42);
        QVERIFY(!ok);
        QCOMPARE(int(variantToUInt16(QStringList("7"), 42, &ok)), 7);
        QVERIFY(ok);
        QCOMPARE(int(variantToUInt16(QVariant(), 42, &ok)), 42);
        QVERIFY(!ok);
        QCOMPARE(int(variantToUInt16(QVariantList{1}, 42, nullptr)), 42);
        const ParameterMap numbers = {{"data", QVariant::fromValue(QVector<quint16>{1, 65535})}};
        QCOMPARE(text(dataParameter(77, numbers, nullptr, &ok)), "[1 65535]");
        QVERIFY(ok);
        const ParameterMap nothing = {{"register", QVariant()}, {"start_address", 100}};
        QCOMPARE(int(registerParameter(77, nothing, nullptr, &ok, 42)), 42);
        QVERIFY(!ok);
    }

    void registerTypes()
    {
        const QStringList types = {"coilsRegister", "inputStatus", "holdingRegisters",
                                   "inputRegisters"};
        for (int code = 1; code <= 4; ++code) {
            QCOMPARE(registerTypeToFunctionCode(types[code - 1]), code);
            QCOMPARE(readFunctionName(code), "modbus_read_" + types[code - 1]);
        }
        for (const char* other : {"HoldingRegisters", "coilRegister", "singleRegister", ""}) {
            QCOMPARE(registerTypeToFunctionCode(other), 0);
        }
    }
};

QTEST_APPLESS_MAIN(TestLookup)
#include "tst_lookup.moc"

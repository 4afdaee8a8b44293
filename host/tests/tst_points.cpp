#include <points/address.h>
#include <points/quality.h>
#include <points/value_codec.h>

#include <QtTest>

using namespace Points;

namespace {

Words words(const QString& hex)
{
    const QByteArray bytes = QByteArray::fromHex(hex.toLatin1());
    Words list;
    for (int i = 0; i < bytes.size(); i += 2) {
        list.append(bytes.mid(i, 2).toHex().toUShort(nullptr, 16));
    }
    return list;
}

ValueFormat format(const QString& type, const QString& order = "ABCD", double scale = 1,
                   double offset = 0)
{
    return {dataTypeFrom(type).value(), orderFrom(order).value(), scale, offset, {}};
}

Profile tables()
{
    Table coils;
    coils.name = "coils";
    coils.digit = "0";
    Table holding;
    holding.name = "holding";
    holding.aliases = QStringList{"h"};
    holding.digit = "4";
    Profile profile;
    profile.tables = {coils, holding};
    return profile;
}

} // namespace

class TestPoints : public QObject
{
    Q_OBJECT

private slots:
    void bothWays_data();
    void bothWays();
    void decoded_data();
    void decoded();
    void encoded_data();
    void encoded();
    void noType();
    void address_data();
    void address();
    void quality();
};

// The bytes are those of Python's struct module, in network order; other orders by hand.
void TestPoints::bothWays_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("bytes");
    QTest::addColumn<QString>("order");
    QTest::addColumn<double>("scale");
    QTest::addColumn<double>("offset");

    const auto row = [](const char* name, const char* type, const char* text, const char* bytes,
                        const char* order = "ABCD", double scale = 1, double offset = 0) {
        QTest::newRow(name) << QString(type) << QString(text) << QString(bytes) << QString(order)
                            << scale << offset;
    };
    row("int16 least", "int16", "-32768", "8000");
    row("uint16 most", "uint16", "65535", "ffff");
    row("int32 minus one", "int32", "-1", "ffffffff");
    row("int32", "int32", "305419896", "12345678");
    row("int32 least", "int32", "-2147483648", "80000000");
    row("uint32 most", "uint32", "4294967295", "ffffffff");
    row("int64", "int64", "1311768467463790320", "123456789abcdef0");
    row("int64 least", "int64", "-9223372036854775808", "8000000000000000");
    row("int64 beyond a double", "int64", "9007199254740993", "0020000000000001");
    row("uint64 most", "uint64", "18446744073709551615", "ffffffffffffffff");
    row("float32", "float32", "21.5", "41ac0000");
    row("float32 fraction", "float32", "0.1", "3dcccccd");
    row("float32 pi", "float32", "3.1415927", "40490fdb");
    row("float32 whole", "float32", "16777216", "4b800000");
    row("float32 denormal", "float32", "1e-45", "00000001");
    row("float32 largest", "float32", "3.4028235e+38", "7f7fffff");
    row("float32 negative zero", "float32", "-0", "80000000");
    row("float32 infinity", "float32", "inf", "7f800000");
    row("float32 minus infinity", "float32", "-inf", "ff800000");
    row("float32 NaN", "float32", "NaN", "7fc00000");
    row("float64", "float64", "-273.15", "c071126666666666");
    row("float64 denormal", "float64", "5e-324", "0000000000000001");
    row("float64 infinity", "float64", "-inf", "fff0000000000000");
    row("float64 NaN", "float64", "NaN", "7ff8000000000000");
    row("float32 CDAB", "float32", "123.456", "e97942f6", "CDAB");
    row("float32 BADC", "float32", "123.456", "f64279e9", "BADC");
    row("float32 DCBA", "float32", "123.456", "79e9f642", "DCBA");
    row("int64 CDAB", "int64", "72623859790382856", "0708050603040102", "CDAB");
    row("int64 BADC", "int64", "72623859790382856", "0201040306050807", "BADC");
    row("int64 DCBA", "int64", "72623859790382856", "0807060504030201", "DCBA");
    row("int16 BADC", "int16", "258", "0201", "BADC");
    row("int16 CDAB", "int16", "258", "0102", "CDAB");
    row("bcd16", "bcd16", "1907", "1907");
    row("bcd32", "bcd32", "12345678", "56781234", "CDAB");
    row("string", "string5", "PUMP1", "50554d503100");
    row("string, swapped bytes", "string(5)", "PUMP1", "5550504d0031", "BADC");
    row("string, full", "string4", "AB C", "41422043");
    row("string, UTF-8", "string2", "\u00b0", "c2b0");
    row("true", "bool", "true", "0001");
    row("false", "bool", "false", "0000");
    row("scaled", "int16", "-0.3", "fffd", "ABCD", 0.1);
    row("scaled, offset", "uint16", "-39.5", "0005", "ABCD", 0.1, -40);
    row("scaled float", "float32", "2150", "41ac0000", "ABCD", 100);
    row("scaled bcd", "bcd16", "19.07", "1907", "ABCD", 0.01);
}

void TestPoints::bothWays()
{
    QFETCH(QString, type);
    QFETCH(QString, text);
    QFETCH(QString, bytes);
    QFETCH(QString, order);
    QFETCH(double, scale);
    QFETCH(double, offset);
    const ValueFormat form = format(type, order, scale, offset);
    const Decoded decoded = decode(words(bytes), form);
    QCOMPARE(decoded.misfit, "");
    QCOMPARE(valueText(decoded.value), text);
    const Encoded encoded = encode(text, form);
    QCOMPARE(encoded.wanted, "");
    QCOMPARE(encoded.words, words(bytes));
    QCOMPARE(wordCount(form.type), encoded.words.size());
}

void TestPoints::decoded_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("bytes");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("misfit");

    const auto row = [](const char* type, const char* bytes, const QVariant& value,
                        const char* misfit = "") {
        QTest::addRow("%s %s", type, bytes)
            << QString(type) << QString(bytes) << value << QString(misfit);
    };
    row("bool", "0100", true);
    row("bit0", "fffe", false);
    row("bit(15)", "8000", true);
    row("bcd16", "1a00", {}, "0x1a00 holds no decimal digits");
    row("bcd32", "0000000f", {}, "0x0000000f holds no decimal digits");
    row("string4", "e9740041", QString("\u00e9t")); // Latin-1, and what is behind the end
    row("uint64", "8000000000000000", 9223372036854775808ull);
    row("float32", "3dcccccd", 0.1);
}

void TestPoints::decoded()
{
    QFETCH(QString, type);
    QFETCH(QString, bytes);
    QFETCH(QVariant, value);
    const Decoded decoded = decode(words(bytes), format(type));
    QCOMPARE(decoded.value, value);
    QCOMPARE(decoded.value.userType(), value.userType());
    QTEST(decoded.misfit, "misfit");
}

void TestPoints::encoded_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("bytes"); // empty: refused
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<double>("scale");

    const auto row = [](const char* type, const char* text, const char* bytes,
                        const char* wanted = "", double scale = 1) {
        QTest::addRow("%s %s %g", type, text, scale)
            << QString(type) << QString(text) << QString(bytes) << QString(wanted) << scale;
    };
    const char* uint16 = "a whole number 0 to 65535 (uint16)";
    row("uint16", "0xFFFF", "ffff");
    row("uint16", "010", "000a");
    row("uint16", " 1e3 ", "03e8");
    row("int16", "-0x1", "ffff");
    row("uint16", "-1", "", uint16);
    row("uint16", "65536", "", uint16);
    row("uint16", "3.14", "", uint16);
    row("uint16", "on", "", uint16);
    row("uint16", "", "", uint16);
    row("uint16", "0x", "", uint16);
    row("int32", "2147483648", "", "a whole number -2147483648 to 2147483647 (int32)");
    row("int64", "9223372036854775808", "",
        "a whole number -9223372036854775808 to 9223372036854775807 (int64)");
    row("uint64", "18446744073709551616", "", "a whole number 0 to 18446744073709551615 (uint64)");
    row("bcd16", "10000", "", "a whole number 0 to 9999 (bcd16)");
    row("int16", "3276.8", "", "a multiple of 0.1 whose number is -32768 to 32767 (int16)", 0.1);
    row("int16", "0.25", "", "a multiple of 0.1 whose number is -32768 to 32767 (int16)", 0.1);
    row("int16", "1000000.1", "", "a multiple of 0.1 whose number is -32768 to 32767 (int16)", 0.1);
    row("float32", "1e39", "", "a number between -3.4e38 and 3.4e38 that a float32 holds");
    row("float32", "1e-46", "", "a number between -3.4e38 and 3.4e38 that a float32 holds");
    row("float32", "x", "", "a number between -3.4e38 and 3.4e38 that a float32 holds");
    row("float64", "1e999", "", "a number between -1.7e308 and 1.7e308 that a float64 holds");
    row("float64", "1e308", "", "a number that a float64 holds", 1e-9);
    row("float32", "NAN", "7fc00000");
    row("string2", "abc", "", "a text of 2 bytes at most");
    row("bool", "ON", "0001");
    row("bool", "2", "", "on, off, true, false, 1 or 0");
    row("bit3", "1", "", "possible: a bit cannot be written alone, write its word");
}

void TestPoints::encoded()
{
    QFETCH(QString, type);
    QFETCH(QString, text);
    QFETCH(QString, bytes);
    QFETCH(double, scale);
    const Encoded encoded = encode(text, format(type, "ABCD", scale));
    QCOMPARE(encoded.words, words(bytes));
    QTEST(encoded.wanted, "wanted");
}

void TestPoints::noType()
{
    for (const char* name : {"", "int", "int8", "Float32", "bit", "bit16", "bit-1", "string",
                             "string0", "string251", "string(4", "bool1"}) {
        QVERIFY2(!dataTypeFrom(name), name);
    }
    QVERIFY(!orderFrom("ACBD"));
    QVERIFY(!fits(Order::CDAB, *dataTypeFrom("string4")));
}

void TestPoints::address_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("table");
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("third"); // the text of what is two further
    QTest::addColumn<QString>("error");

    const auto good = [](const char* text, const char* table, int number, const char* third) {
        QTest::newRow(text) << QString(text) << QString(table) << number << QString(third)
                            << QString();
    };
    const auto bad = [](const char* text, const QString& error) {
        QTest::newRow(text) << QString(text) << QString() << -1 << QString()
                            << QStringLiteral("'%1' is no address: %2").arg(text, error);
    };
    good("holding:100", "holding", 100, "102");
    good("h:0", "holding", 0, "2");
    good("40001", "holding", 0, "40003");
    good("49998", "holding", 9997, "410000"); // beyond four digits
    good("465536", "holding", 65535, "465538");
    good("00001", "coils", 0, "00003");
    good("000017", "coils", 16, "000019");
    const QString forms =
        "it is written as in holding:100, from 0, or by the old number 40101, from 1";
    bad("100", forms);
    bad("50001", forms);
    bad("4000001", forms);
    bad("", forms);
    bad("40000", "the old numbers of holding count from 40001 to 465536");
    bad("465537", "the old numbers of holding count from 40001 to 465536");
    bad("input:1", "the tables are coils, holding, h");
    bad("h:", "numbers count from 0 to 65535");
    bad("h:65536", "numbers count from 0 to 65535");
}

void TestPoints::address()
{
    QFETCH(QString, text);
    QFETCH(int, number);
    const Profile profile = tables();
    const AddressReading read = addressFrom(text, profile);
    QTEST(read.error, "error");
    QCOMPARE(read.address.has_value(), number >= 0);
    if (read.address) {
        QCOMPARE(read.address->number, number);
        QTEST(read.address->table->name, "table");
        QTEST(addressText(*read.address, 2), "third");
    }
}

void TestPoints::quality()
{
    const QDateTime time({2024, 3, 9}, {17, 5, 42}, Qt::UTC);
    const PointValue value = PointValue::good(21.5, time);
    QCOMPARE(value.at(time.addMSecs(500), 500).quality, Quality::Good);
    QCOMPARE(value.at(time.addMSecs(501), 500).quality, Quality::Uncertain);
    QCOMPARE(value.at(time.addMSecs(-1), 500).quality, Quality::Uncertain);
    const PointValue failed = value.failed("no answer").at(time.addDays(1), 500);
    QCOMPARE(failed.quality, Quality::Bad);
    QCOMPARE(failed.reason, "no answer");
    QCOMPARE(failed.time, time);
    QCOMPARE(PointValue().quality, Quality::Bad);
}

QTEST_GUILESS_MAIN(TestPoints)
#include "tst_points.moc"

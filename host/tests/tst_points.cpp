#include <points/address.h>
#include <points/quality.h>
#include <points/value_codec.h>

#include "table.h"

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

void TestPoints::bothWays_data() { addRows("values"); }

void TestPoints::bothWays()
{
    QFETCH(QStringList, cells);
    const ValueFormat form = format(cells[0], cells.value(3, "ABCD"),
                                    cells.value(4, "1").toDouble(), cells.value(5).toDouble());
    const Decoded decoded = decode(words(cells[2]), form);
    QCOMPARE(decoded.misfit, "");
    QCOMPARE(valueText(decoded.value), cells[1]);
    const Encoded encoded = encode(cells[1], form);
    QCOMPARE(encoded.wanted, "");
    QCOMPARE(encoded.words, words(cells[2]));
    QCOMPARE(wordCount(form.type), encoded.words.size());
}

void TestPoints::decoded_data() { addRows("decoded"); }

void TestPoints::decoded()
{
    QFETCH(QStringList, cells);
    const Decoded decoded = decode(words(cells[1]), format(cells[0]));
    QCOMPARE(typed(decoded.value), cells[2]);
    QCOMPARE(decoded.misfit, cells.value(3));
}

void TestPoints::encoded_data() { addRows("encoded"); }

void TestPoints::encoded()
{
    QFETCH(QStringList, cells);
    const QString given = QTest::currentDataTag();
    const QString text = given.section('"', 1, 1);
    const double scale = cells.value(2, "1").toDouble();
    const Encoded encoded = encode(text, format(given.section(' ', 0, 0), "ABCD", scale));
    QCOMPARE(encoded.words, words(cells[0]));
    QCOMPARE(encoded.wanted, cells.value(1));
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

void TestPoints::address_data() { addRows("addresses"); }

void TestPoints::address()
{
    QFETCH(QStringList, cells);
    const QString text = QString(QTest::currentDataTag()).remove('"');
    const Profile profile = tables();
    const AddressReading read = addressFrom(text, profile);
    QCOMPARE(read.address.has_value(), cells.size() == 3);
    if (!read.address) {
        QCOMPARE(read.error, QString("'%1' is no address: %2").arg(text, cells[0]));
        return;
    }
    QCOMPARE(read.address->table->name, cells[0]);
    QCOMPARE(read.address->number, cells[1].toInt());
    QCOMPARE(addressText(*read.address, 2), cells[2]);
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

#include <plugin_management/fast_delegate.h>
#include <plugin_management/parameter_check.h>
#include <plugin_management/reply_framing.h>
#include <runtime/engine/round_trips.h>
#include <utilities/utilities.h>

#include <QtTest>

namespace {

QVariantMap map(const char* key, const QVariant& value)
{
    return {{QString::fromLatin1(key), value}};
}

} // namespace

class HostValuesTest : public QObject
{
    Q_OBJECT

private slots:
    void versions_data();
    void versions();
    void words_data();
    void words();
    void mapsAsText();
    void parameters_data();
    void parameters();
    void frameLengths_data();
    void frameLengths();
    void roundTrips();
    void delegates();
};

void HostValuesTest::versions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QChar>("separator");
    QTest::addColumn<quint64>("version");
    QTest::addColumn<bool>("good");
    const QChar dot = QLatin1Char('.');
    QTest::newRow("two fields") << "1.0" << dot << Q_UINT64_C(0x0001000000000000) << true;
    QTest::newRow("four fields") << "1.2.3.4" << dot << Q_UINT64_C(0x0001000200030004) << true;
    QTest::newRow("widest") << "65535" << dot << Q_UINT64_C(0xFFFF000000000000) << true;
    QTest::newRow("other separator")
        << "2-7" << QChar(QLatin1Char('-')) << Q_UINT64_C(0x0002000700000000) << true;
    QTest::newRow("field too large") << "1.65536" << dot << Q_UINT64_C(0) << false;
    QTest::newRow("five fields") << "1.2.3.4.5" << dot << Q_UINT64_C(0) << false;
    QTest::newRow("letters") << "1.x" << dot << Q_UINT64_C(0) << false;
    QTest::newRow("empty") << "" << dot << Q_UINT64_C(0) << false;
}

void HostValuesTest::versions()
{
    QFETCH(QString, text);
    QFETCH(QChar, separator);
    bool ok = false;
    QTEST(quint64(versionFromString(text, &ok, separator)), "version");
    QTEST(ok, "good");
}

void HostValuesTest::words_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QVariantList>("values");
    QTest::newRow("none") << QByteArray() << QVariantList{};
    QTest::newRow("pairs") << QByteArray::fromHex("0102ffff8000")
                           << QVariantList{258u, 65535u, 32768u};
    QTest::newRow("single byte") << QByteArray::fromHex("01") << QVariantList{1u};
    QTest::newRow("odd count") << QByteArray::fromHex("0102ff") << QVariantList{258u, 255u};
}

void HostValuesTest::words()
{
    QFETCH(QByteArray, bytes);
    QTEST(convUInt16BigEndianByteArrayToVariantList(bytes), "values");
}

void HostValuesTest::mapsAsText()
{
    const QVariantMap nested{
        {QStringLiteral("a"), 2},
        {QStringLiteral("b"), QStringLiteral("say \"hi\"\n")},
        {QStringLiteral("c"), QByteArray::fromHex("01FF")},
        {QStringLiteral("d"), QVariantList{true, QVariantMap{}}},
        {QStringLiteral("e"), QVariant()},
    };
    const char* text = "{\"a\": 2, \"b\": \"say \\\"hi\\\"\\u000a\", \"c\": 01ff, "
                       "\"d\": [true, {}], \"e\": <none>}";
    QCOMPARE(convVariantMapToString(nested), QString::fromLatin1(text));
}

void HostValuesTest::parameters_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QVariant>("given");
    QTest::addColumn<QVariant>("taken"); // invalid: refused
    const QVariant refused;
    const auto text = [](const char* t) { return QVariant(QString::fromLatin1(t)); };
    QTest::newRow("number") << "ui16" << QVariant(65535) << QVariant(65535);
    QTest::newRow("number as text") << "ui16" << text(" 100 ") << QVariant(100u);
    QTest::newRow("hexadecimal text") << "ui16" << text("0x0102") << QVariant(258u);
    QTest::newRow("leading zero is decimal") << "ui16" << text("010") << QVariant(10u);
    QTest::newRow("whole real") << "ui16" << QVariant(2.0) << QVariant(2u);
    QTest::newRow("broken real") << "ui16" << QVariant(2.5) << refused;
    QTest::newRow("negative") << "ui16" << QVariant(-1) << refused;
    QTest::newRow("too large") << "ui16" << QVariant(65536) << refused;
    QTest::newRow("word") << "ui16" << text("abc") << refused;
    QTest::newRow("list as number") << "ui16" << QVariant(QVariantList{1}) << refused;
    QTest::newRow("bool as number") << "ui16" << QVariant(true) << refused;
    QTest::newRow("bool") << "bool" << text("TRUE") << QVariant(true);
    QTest::newRow("no bool") << "bool" << text("maybe") << refused;
    QTest::newRow("text") << "strg" << text("10.0.0.1") << text("10.0.0.1");
    QTest::newRow("number as a text") << "strg" << QVariant(5) << text("5");
    QTest::newRow("list as text") << "strg" << QVariant(QVariantList{}) << refused;
    QTest::newRow("list") << "varL" << QVariant(QVariantList{1}) << QVariant(QVariantList{1});
    QTest::newRow("no list") << "varL" << QVariant(1) << refused;
    QTest::newRow("anything") << "vart" << QVariant(QVariantList{1}) << QVariant(QVariantList{1});
}

void HostValuesTest::parameters()
{
    QFETCH(QString, tag);
    QFETCH(QVariant, given);
    QFETCH(QVariant, taken);
    const QList<Declaration> declared{
        {QStringLiteral("p"), tag, QString(), QVariant()},
        {QStringLiteral("q"), QStringLiteral("ui16"), QString(), QVariant(80)}};
    QVariantMap parameters = map("p", given);
    parameters.insert(QStringLiteral("undeclared"), -5);
    QString error;
    QCOMPARE(checkParameters(declared, parameters, &error), taken.isValid());
    if (!taken.isValid()) {
        QVERIFY2(error.startsWith(QStringLiteral("parameter 'p': '")), qPrintable(error));
        return;
    }
    QCOMPARE(parameters.value(QStringLiteral("p")), taken);
    QCOMPARE(parameters.value(QStringLiteral("p")).userType(), taken.userType());
    QCOMPARE(parameters.value(QStringLiteral("q")), QVariant(80));
    QCOMPARE(parameters.value(QStringLiteral("undeclared")), QVariant(-5));
}

void HostValuesTest::frameLengths_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("length"); // 0: more is needed, -1: implausible
    QTest::addColumn<bool>("text"); // a line
    const auto line = [](const char* name, const QByteArray& bytes, int length) {
        QTest::newRow(name) << bytes << length << true;
    };
    const QByteArray longLine(1023, 'x');
    line("no line yet", "level 20.5", 0);
    line("the first of two lines", "a 1\r\nb 2\r\n", 5);
    line("longest line", longLine + '\n', 1024);
    line("still a line", longLine, 0);
    line("endless line", longLine + 'x', -1);
    line("line too long", longLine + "x\n", -1);
    QTest::newRow("nothing") << QByteArray() << 0 << false;
    QTest::newRow("header not whole") << QByteArray::fromHex("aabb000000") << 0 << false;
    QTest::newRow("rest to come") << QByteArray::fromHex("aabb00000007") << 13 << false;
    QTest::newRow("shortest body") << QByteArray::fromHex("aabb00000002") << 8 << false;
    QTest::newRow("longest body") << QByteArray::fromHex("aabb000000fe") << 260 << false;
    QTest::newRow("body too short") << QByteArray::fromHex("aabb00000001") << -1 << false;
    QTest::newRow("body too long") << QByteArray::fromHex("aabb000000ff") << -1 << false;
    QTest::newRow("high byte counts") << QByteArray::fromHex("aabb00000102") << -1 << false;
}

void HostValuesTest::frameLengths()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, text);
    const ReplyFraming& framing = text ? lineFraming() : mbapFraming();
    QTEST(framing.frameLength(bytes.constData(), bytes.size()), "length");
}

void HostValuesTest::roundTrips()
{
    RoundTrips trips;
    QCOMPARE(trips.quantileUs(99), 0u);
    for (int us = 1; us <= 1000; ++us) {
        trips.add(us);
    }
    trips.add(70000000);
    QCOMPARE(trips.leastUs(), 1u);
    QCOMPARE(trips.mostUs(), 70000000u);
    QCOMPARE(trips.meanUs(), 70430u); // (500500 + 70000000) / 1001
    QVERIFY(trips.quantileUs(99) >= 990 && trips.quantileUs(99) <= 1023);
    QVERIFY(trips.quantileUs(50) >= 500 && trips.quantileUs(50) <= 560);
    QCOMPARE(trips.quantileUs(100), 70000000u);
}

struct Base
{
    int calls = 0;
    bool add(unsigned long long id, const QVariantMap&) { return id == 7 && ++calls == 1; }
};

struct Other
{
    virtual ~Other() = default;
    int padding = 0;
};

struct Derived : Other, Base // Base is not at the object's start
{
};

void HostValuesTest::delegates()
{
    using Delegate = fastdelegate::FastDelegate2<unsigned long long, const QVariantMap&, bool>;
    Derived object;
    Delegate delegate;
    QVERIFY(delegate.empty());
    delegate = Delegate(&object, &Derived::add);
    QVERIFY(!delegate.empty() && delegate(7, QVariantMap()));
    QCOMPARE(object.calls, 1);
    delegate.clear();
    QVERIFY(delegate.empty());
}

QTEST_APPLESS_MAIN(HostValuesTest)

#include "tst_host_values.moc"

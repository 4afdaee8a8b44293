#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/fast_delegate.h>
#include <plugin_management/parameter_check.h>
#include <plugin_management/reply_framing.h>
#include <runtime/engine/round_trips.h>
#include <utilities/utilities.h>

#include <QtTest>

#include <limits>

namespace {

QVariantMap map(const char* key, const QVariant& value)
{
    return {{QString::fromLatin1(key), value}};
}

/// Declares each letter of "declares", capitals as results.
class Chameleon : public DAbstractCommand
{
public:
    explicit Chameleon(const ParameterMap& parameters)
        : DAbstractCommand(QStringLiteral("change"), parameters, nullptr)
    {
        const QString letters =
            parameters.value(QStringLiteral("declares"), QStringLiteral("abR")).toString();
        for (const QChar letter : letters) {
            const auto declare =
                letter.isUpper() ? &Chameleon::declareAResult : &Chameleon::declareAParameter;
            (this->*declare)(letter, QStringLiteral("vart"), QString(), QVariant());
        }
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<ICommand>(new Chameleon(parameters));
    }

    bool commandExecute() override
    {
        declared.clear();
        for (const auto& each : commandArguments() + commandResults()) {
            declared += each.name;
        }
        return true;
    }

    static inline QString declared;
};

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
    void commandsOfOrders();
    void commandsThatDeclareOtherwise_data();
    void commandsThatDeclareOtherwise();
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
    const QVariantList kept = convUInt16BigEndianByteArrayToVariantList(bytes);
    // Others of that size leave it alone, whether they are kept or not.
    const QByteArray other(bytes.size(), '\x7E');
    convUInt16BigEndianByteArrayToVariantList(other);
    convUInt16BigEndianByteArrayToVariantList(other);
    QTEST(kept, "values");
    const QVariantList again = convUInt16BigEndianByteArrayToVariantList(bytes);
    QCOMPARE(again, kept);
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
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("tag"); // empty: the parameter is not declared
    QTest::addColumn<QVariant>("given");
    QTest::addColumn<QVariant>("taken");
    QTest::addColumn<QString>("refusal"); // what it begins with; empty: taken
    const auto text = [](const char* t) { return QVariant(QString::fromLatin1(t)); };
    const auto list = [](const QVariantList& values) { return QVariant(values); };
    const auto good = [](const char* name, const char* tag, const QVariant& given,
                         const QVariant& taken) {
        QTest::newRow(name) << "p" << tag << given << taken << QString();
    };
    const auto bad = [](const char* name, const char* tag, const QVariant& given,
                        const char* refusal) {
        QTest::newRow(name) << "p" << tag << given << QVariant() << QString::fromLatin1(refusal);
    };
    const auto free = [](const char* name, const char* parameter, const QVariant& given,
                         const QVariant& taken) { // invalid: refused
        QTest::newRow(name) << parameter << QString() << given << taken
                            << QString::fromLatin1(taken.isValid() ? "" : parameter);
    };
    good("number", "ui16", 65535, 65535);
    good("number as text", "ui16", text(" 100 "), 100u);
    good("hexadecimal text", "ui16", text("0x0102"), 258u);
    good("leading zero is decimal", "ui16", text("010"), 10u);
    good("whole real", "ui16", 2.0, 2u);
    bad("broken real", "ui16", 2.5, "p': '2.5' is not a number 0 to 65535");
    bad("negative", "ui16", -1, "p': '-1' is not a number 0 to 65535");
    bad("too large", "ui16", 65536, "p': '65536' is not a number 0 to 65535");
    bad("too large for words", "ui16", qlonglong(4294967301), "p': '4294967301' is not a number 0");
    bad("word", "ui16", text("abc"), "p': 'abc' is not a number 0 to 65535");
    bad("twice hexadecimal", "ui16", text("0x0x5"), "p': '0x0x5' is not a number 0 to 65535");
    bad("list as number", "ui16", list({1}), "p': '[1]' is not a number");
    bad("bool as number", "ui16", true, "p': 'true' is not a number");
    good("bool", "bool", text("TRUE"), true);
    bad("no bool", "bool", text("maybe"), "p': 'maybe' is not true or false");
    good("text", "strg", text("10.0.0.1"), text("10.0.0.1"));
    good("number as a text", "strg", 5, text("5"));
    good("digits", "strg", text("4294967301"), text("4294967301"));
    bad("broken real as a text", "strg", 1.5, "p': '1.5' is not a text");
    bad("list as text", "strg", list({}), "p': '[]' is not a text");
    good("list", "varL", list({1}), list({1}));
    bad("no list", "varL", 1, "p': '1' is not a list");
    bad("broken real in a list", "varL", list({1, 2.5}), "p[1]': '2.5' is not a whole number -2");
    good("whole real in a list", "vart", list({1.0, text("x")}), list({1, text("x")}));
    bad("deep", "vart", list({1, QVariantMap{{QStringLiteral("a"), list({true, 1e300})}}}),
        "p[1].a[1]': '1e+300' is not a whole number");
    good("least", "vart", -2147483648.0, std::numeric_limits<int>::min());
    good("most", "vart", qlonglong(4294967295), 4294967295u);
    bad("one less", "vart", qlonglong(-2147483649), "p': '-2147483649' is not a whole number");
    bad("one more", "vart", 4294967296.0, "p': '4294967296' is not a whole number");
    bad("no number", "vart", qQNaN(), "p': 'nan' is not a whole number");
    bad("text of one more", "vart", list({text("4294967296")}), "p[0]': '4294967296' is not a");
    good("text of a fraction", "vart", text("1.6"), text("1.6"));
    const char* interval = "recurrentInterval";
    free("undeclared text", "x", text("4294967301"), text("4294967301"));
    free("undeclared whole real", "x", 7.0, 7);
    free("undeclared negative", "x", -5, -5);
    free("undeclared broken real", "x", 1.6, {});
    free("wrapping number", "keepAliveFunctionRegister", qlonglong(4294967301), {});
    free("longest interval", interval, 86400000, 86400000);
    free("interval as text", interval, text("0x14"), 20);
    free("no interval", interval, 0, {});
    free("too long an interval", interval, 86400001, {});
    free("wrapping interval", interval, qlonglong(4294967301), {});
    free("wrapping interval as text", interval, text("4294967301"), {});
    free("interval that is no number", interval, text("soon"), {});
}

void HostValuesTest::parameters()
{
    QFETCH(QString, name);
    QFETCH(QString, tag);
    QFETCH(QVariant, given);
    QFETCH(QVariant, taken);
    QFETCH(QString, refusal);
    QList<Declaration> declared{
        {QStringLiteral("q"), QStringLiteral("ui16"), QString(), QVariant(80)}};
    if (!tag.isEmpty()) {
        declared.append({name, tag, QString(), QVariant()});
    }
    QVariantMap parameters{{name, given}};
    QString error;
    QCOMPARE(checkParameters(declared, parameters, &error), refusal.isEmpty());
    if (!refusal.isEmpty()) {
        QVERIFY2(error.startsWith(QStringLiteral("parameter '") + refusal), qPrintable(error));
        return;
    }
    QCOMPARE(parameters.value(name), taken);
    QCOMPARE(parameters.value(name).userType(), taken.userType());
    QCOMPARE(parameters.value(QStringLiteral("q")), QVariant(80));
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

// Declares the result that its parameters name, writes down what it finds when it runs, and gives
// its owner to all that it makes.
class ProbeCommand : public DAbstractCommand
{
public:
    ProbeCommand(const ParameterMap& parameters, QObject* owner, QStringList& found)
        : DAbstractCommand(QStringLiteral("probe"), parameters, owner), m_owner(owner),
          m_found(found)
    {
        declareAResult(getParameterValue(QStringLiteral("result"), QVariant()).toString(),
                       QStringLiteral("vart"), QString(), QVariant());
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<ICommand>(new ProbeCommand(parameters, m_owner, m_found));
    }

    bool commandExecute() override
    {
        m_found << (parent() == nullptr ? QStringLiteral("no parent") : QStringLiteral("parent"))
                << commandResults().value(0).name;
        return false;
    }

private:
    QObject* m_owner;
    QStringList& m_found;
};

class ProbePlugin : public DAbstractPlugin
{
public:
    ProbePlugin()
        : DAbstractPlugin(QUuid(), QStringLiteral("Probe"), TypeDriver, 1, QUuid(), nullptr, false)
    {
    }

    void initPluginCommands() override
    {
        initAbstractCommands();
        declareInstructionCommand(new ProbeCommand({}, this, found));
    }
    IPlugin* createInstance(const QUuid&) const override { return nullptr; }
    const char* pluginSubTypeName() const override { return ""; }

    QStringList found;
};

// An order owns its command, which has declared what its own constructor says.
void HostValuesTest::commandsOfOrders()
{
    ProbePlugin plugin;
    plugin.initPluginCommands();
    plugin.orders()->start(QStringLiteral("probe"),
                           {{QStringLiteral("result"), QStringLiteral("level")}});
    QCOMPARE(plugin.found.join(QLatin1String(", ")), QStringLiteral("no parent, level"));
    QCOMPARE(plugin.command(QStringLiteral("probe"))->parent(), &plugin);
    QCOMPARE(plugin.findChildren<DAbstractCommand*>().size(), 1);
}

void HostValuesTest::commandsThatDeclareOtherwise_data()
{
    QTest::addColumn<QString>("declares");
    for (const char* letters : {"abR", "a", "acR", "abcR", "bR", "abRS", "", "R"}) {
        QTest::addRow("'%s'", letters) << QString::fromLatin1(letters);
    }
}

void HostValuesTest::commandsThatDeclareOtherwise()
{
    QFETCH(QString, declares);
    DOrders orders;
    const Chameleon prototype({});
    orders.addPrototype(&prototype);
    for (int i = 0; i < 2; ++i) {
        QVERIFY(orders.start(QStringLiteral("change"), map("declares", declares)) != 0);
        QCOMPARE(Chameleon::declared, declares);
    }
}

QTEST_APPLESS_MAIN(HostValuesTest)

#include "tst_host_values.moc"

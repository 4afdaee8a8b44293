#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/fast_delegate.h>
#include <plugin_management/parameter_check.h>
#include <plugin_management/reply_framing.h>
#include <runtime/engine/round_trips.h>
#include <utilities/utilities.h>

#include "table.h"

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
        : DAbstractCommand("change", parameters, nullptr)
    {
        const QString letters = parameters.value("declares", "abR").toString();
        for (const QChar letter : letters) {
            const auto declare =
                letter.isUpper() ? &Chameleon::declareAResult : &Chameleon::declareAParameter;
            (this->*declare)(letter, "vart", QString(), QVariant());
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

void HostValuesTest::versions_data() { addRows("versions"); }

void HostValuesTest::versions()
{
    QFETCH(QStringList, cells);
    bool ok = false;
    const quint64 version = versionFromString(cells[0], &ok, cells[1].at(0));
    QCOMPARE(version, cells[2].toULongLong(nullptr, 16));
    QCOMPARE(ok, !cells[2].isEmpty());
}

void HostValuesTest::words_data() { addRows("words"); }

void HostValuesTest::words()
{
    QFETCH(QStringList, cells);
    const QByteArray bytes = QByteArray::fromHex(cells[0].toLatin1());
    const QVariantList kept = convUInt16BigEndianByteArrayToVariantList(bytes);
    // Others of that size leave it alone, whether they are kept or not.
    const QByteArray other(bytes.size(), '\x7E');
    convUInt16BigEndianByteArrayToVariantList(other);
    convUInt16BigEndianByteArrayToVariantList(other);
    QCOMPARE(kept, valueIn(cells[1]).toList());
    const QVariantList again = convUInt16BigEndianByteArrayToVariantList(bytes);
    QCOMPARE(again, kept);
    // More of them than are ever dealt with together.
    QList<QVariantList> all;
    for (char filling = 0; filling < 100; ++filling) {
        all.append(convUInt16BigEndianByteArrayToVariantList(QByteArray(bytes.size(), filling)));
    }
    for (char filling = 0; filling < 100; ++filling) {
        QCOMPARE(all[filling],
                 convUInt16BigEndianByteArrayToVariantList(QByteArray(bytes.size(), filling)));
    }
}

void HostValuesTest::mapsAsText()
{
    const QVariantMap nested{
        {"a", 2},
        {"b", "say \"hi\"\n"},
        {"c", QByteArray::fromHex("01FF")},
        {"d", QVariantList{true, QVariantMap{}}},
        {"e", QVariant()},
    };
    const char* text = "{\"a\": 2, \"b\": \"say \\\"hi\\\"\\u000a\", \"c\": 01ff, "
                       "\"d\": [true, {}], \"e\": <none>}";
    QCOMPARE(convVariantMapToString(nested), QString::fromLatin1(text));
}

void HostValuesTest::parameters_data() { addRows("parameters"); }

void HostValuesTest::parameters()
{
    QFETCH(QStringList, cells);
    const QString name = cells[0];
    QList<Declaration> declared{{"q", "ui16", QString(), QVariant(80)}};
    if (!cells[1].isEmpty()) {
        declared.append({name, cells[1], QString(), QVariant()});
    }
    QVariantMap parameters{{name, valueIn(cells[2])}};
    QString error;
    const bool isTaken = checkParameters(declared, parameters, &error);
    QCOMPARE(isTaken ? typed(parameters.value(name)) : QString(), cells[3]);
    const QString refusal = "parameter '" + name + cells.value(4);
    QVERIFY2(isTaken || error.startsWith(refusal), qPrintable(error));
    QVERIFY(!isTaken || parameters.value("q") == QVariant(80));
}

void HostValuesTest::frameLengths_data() { addRows("frame_lengths"); }

void HostValuesTest::frameLengths()
{
    QFETCH(QStringList, cells);
    const bool isLine = cells[0] == "line";
    const QByteArray bytes =
        QByteArray(cells[1].toInt(), 'x') + QByteArray::fromHex(cells[2].toLatin1());
    const ReplyFraming& framing = isLine ? lineFraming() : mbapFraming();
    QCOMPARE(framing.frameLength(bytes.constData(), bytes.size()), cells[3].toInt());
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
        : DAbstractCommand("probe", parameters, owner), m_owner(owner), m_found(found)
    {
        declareAResult(getParameterValue("result", QVariant()).toString(), "vart", QString(),
                       QVariant());
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<ICommand>(new ProbeCommand(parameters, m_owner, m_found));
    }

    bool commandExecute() override
    {
        m_found << (parent() == nullptr ? "no parent" : "parent") << commandResults().value(0).name;
        return false;
    }

private:
    QObject* m_owner;
    QStringList& m_found;
};

class ProbePlugin : public DAbstractPlugin
{
public:
    ProbePlugin() : DAbstractPlugin(QUuid(), "Probe", TypeDriver, 1, QUuid(), nullptr, false) { }

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
    plugin.orders()->start("probe", {{"result", "level"}});
    QCOMPARE(plugin.found.join(", "), "no parent, level");
    QCOMPARE(plugin.command("probe")->parent(), &plugin);
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
        QVERIFY(orders.start("change", map("declares", declares)) != 0);
        QCOMPARE(Chameleon::declared, declares);
    }
}

QTEST_APPLESS_MAIN(HostValuesTest)

#include "tst_host_values.moc"

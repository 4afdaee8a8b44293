#include <points/block_plan.h>
#include <points/profile.h>
#include <points/range_reading.h>
#include <points/table_scan.h>

#include "table.h"

using namespace Points;

namespace {

/// A table of bits from \a begin to \a end in which each third is set, asked through a module that
/// keeps of the last byte the bit of the last item only.
struct BitDevice
{
    int begin = 0;
    int end = 65536;
    int requests = 0;

    static int bit(int number) { return number % 3 == 0; }

    std::optional<QVariantList> read(Span span)
    {
        ++requests;
        if (span.first < begin || span.end() > end) {
            return std::nullopt;
        }
        QByteArray bytes((span.count + 7) / 8, '\0');
        for (int i = 0; i < span.count; ++i) {
            const bool isKept = i / 8 < bytes.size() - 1 || i == span.count - 1;
            bytes[i / 8] = char(bytes[i / 8] | (isKept ? bit(span.first + i) << i % 8 : 0));
        }
        QVariantList values;
        for (int i = 0; i < bytes.size(); i += 2) {
            const bool isLone = i + 1 == bytes.size();
            values.append(isLone ? uchar(bytes[i]) : uchar(bytes[i]) << 8 | uchar(bytes[i + 1]));
        }
        return values;
    }
};

// The number of requests; -1 where there was no way.
int carryOut(RangeReading& reading, BitDevice& device)
{
    device.requests = 0;
    while (const auto span = reading.next()) {
        const auto values = device.read(*span);
        if (values ? !reading.take(*values) : !reading.refuse()) {
            return -1;
        }
    }
    return device.requests;
}

QString text(const std::vector<Span>& spans)
{
    QStringList texts;
    for (const Span span : spans) {
        texts.append(QString("%1+%2").arg(span.first).arg(span.count));
    }
    return texts.join(' ');
}

} // namespace

class TestPointPlans : public QObject
{
    Q_OBJECT

private slots:
    void everyBit();
    void longBits();
    void words();
    void wrongReplies();
    void blocks();
    void scan_data();
    void scan();
    void profile_data();
    void profile();
};

void TestPointPlans::everyBit()
{
    for (int first = 0; first <= 20; ++first) {
        for (int count = 1; count <= 40; ++count) {
            const std::vector<BitDevice> devices{
                {}, {0, first + count}, {first, 65536}, {first, first + count}};
            for (BitDevice device : devices) {
                RangeReading reading({1016, 1, true}, {first, count});
                const int asked = carryOut(reading, device);
                for (int i = 0; i < count; ++i) {
                    QCOMPARE(int(reading.items()[i]), BitDevice::bit(first + i));
                }
                const bool isRoomy = count % 8 == 1 || device.end == 65536;
                QCOMPARE(isRoomy ? asked : 1, 1);
                reading.restart(); // which knows the way
                const int again = carryOut(reading, device);
                const int most = first > 7 && device.begin == 0 ? 1 : count > 8 ? 2 : count;
                QVERIFY2(again > 0 && again <= (isRoomy ? 1 : most),
                         qPrintable(QString("%1+%2: %3").arg(first).arg(count).arg(again)));
            }
        }
    }
}

void TestPointPlans::longBits()
{
    BitDevice device;
    RangeReading reading({1016, 1, true}, {60000, 5536}); // up to the last one that there can be
    QCOMPARE(carryOut(reading, device), 6);
    for (int i = 0; i < 5536; ++i) {
        QCOMPARE(int(reading.items()[i]), BitDevice::bit(60000 + i));
    }
    device.end = 61000;
    RangeReading beyond({1016, 1, true}, {60990, 20});
    QCOMPARE(carryOut(beyond, device), -1);
}

void TestPointPlans::words()
{
    RangeReading reading({63, 4}, {100, 128}); // 32 values of four words each
    std::vector<Span> asked;
    while (const auto span = reading.next()) {
        asked.push_back(*span);
        QVariantList values;
        for (int i = 0; i < span->count; ++i) {
            values.append(span->first + i);
        }
        QVERIFY(reading.take(values));
    }
    QCOMPARE(text(asked), "100+60 160+60 220+8"); // no value is torn apart
    QCOMPARE(int(reading.items().first()), 100);
    QCOMPARE(int(reading.items().last()), 227);
}

void TestPointPlans::wrongReplies()
{
    RangeReading words({63, 1}, {0, 2});
    RangeReading bits({1016, 1, true}, {0, 9});
    for (const QVariantList& values :
         {QVariantList{}, {1}, {1, 2, 3}, {1, 65536}, {-1, 2}, {1, "x"}}) {
        QVERIFY(!words.take(values));
    }
    for (const QVariantList& values : {QVariantList{}, {1, 2}, {65536}, {"x"}}) {
        QVERIFY(!bits.take(values));
    }
    QVERIFY(!words.refuse());
    QVERIFY(words.take({1, 65535}));
    QVERIFY(!words.next());
}

void TestPointPlans::blocks()
{
    BlockPlan plan(20, 4);
    for (const Span value :
         {Span{30, 2}, {0, 2}, {2, 2}, {8, 1}, {0, 2}, {1, 4}, {36, 2}, {50, 1}}) {
        plan.want(value);
    }
    QCOMPARE(text(plan.blocks()), "0+9 30+8 50+1");
    QVERIFY(plan.split({30, 8})); // at its gap
    QCOMPARE(text(plan.blocks()), "0+9 30+2 36+2 50+1");
    QVERIFY(!plan.split({36, 2}));
    QCOMPARE(text(plan.holes()), "36+2");
    QVERIFY(plan.split({0, 9}));
    QVERIFY(plan.split({0, 5}));
    QCOMPARE(text(plan.blocks()), "0+2 1+4 8+1 30+2 50+1");
    BlockPlan limited(4, 4);
    for (int first = 0; first < 12; first += 2) {
        limited.want({first, 2});
    }
    QCOMPARE(text(limited.blocks()), "0+4 4+4 8+4");
}

void TestPointPlans::scan_data() { addRows("scans"); }

void TestPointPlans::scan()
{
    QFETCH(QStringList, cells);
    const QString has = cells[0];
    const int most = cells[1].toInt();
    std::vector<bool> device(65536, false);
    for (const QString& range : has.split(' ', Qt::SkipEmptyParts)) {
        const int first = range.section('+', 0, 0).toInt();
        std::fill_n(device.begin() + first, range.section('+', 1).toInt(), true);
    }
    TableScan scan;
    int asked = 0;
    while (const auto item = scan.next()) {
        QVERIFY(*item >= 0 && *item < 65536 && ++asked <= most);
        scan.take(device[std::size_t(*item)] ? TableScan::Answer::Has : TableScan::Answer::HasNot);
    }
    QCOMPARE(text(scan.found()), has);
    TableScan silent;
    silent.take(TableScan::Answer::Has);
    silent.take(TableScan::Answer::Silence);
    QVERIFY(silent.next());
    silent.take(TableScan::Answer::Silence);
    QVERIFY(silent.isSilent() && !silent.next());
    TableScan none;
    none.take(TableScan::Answer::NoTable);
    QVERIFY(!none.next());
}

void TestPointPlans::profile_data()
{
    addRows("profiles");
    QTest::newRow("right") << QStringList{"$^", "", ""};
}

void TestPointPlans::profile()
{
    QString json =
        R"({"profile":1,"tables":[{"name":"a","aliases":["b"],"description":"A",)"
        R"("item":"word","digit":"4","read":{"kind":"k","limit":63},)"
        R"("write":[{"kind":"many","limit":9},{"kind":"one","limit":1}]}],"commands":{)"
        R"("get":{"description":"Get","use":"read","values":"v","parameters":{)"
        R"("p":{"role":"address","description":"P"},"t":{"role":"kind","description":"T"},)"
        R"("n":{"role":"count","description":"N","range":[1,9]}},"results":{"v":"V"}},)"
        R"("watch":{"description":"Watch","use":"read","once":"get","interval":50,)"
        R"("values":"v","parameters":{"p":{"role":"address","description":"P"},)"
        R"("t":{"role":"kind","description":"T"},"c":{"role":"count","description":"N"}}}},)"
        R"("hints":[{"failure":"timeout","text":"H"}],"absentTable":[1]})";
    QFETCH(QStringList, cells);
    const QString error = cells[2];
    json.replace(QRegularExpression(cells[0]), cells[1]);
    const ProfileReading reading = profileFrom(json.toUtf8());
    const QMap<QString, QStringList> declared{{"get", {"p", "t", "n", "v"}},
                                              {"watch", {"p", "t", "c", "v"}}};
    const QString found =
        reading.error.isEmpty() ? misfit(reading.profile, declared) : reading.error;
    QVERIFY2(error.isEmpty() ? found.isEmpty() : found.startsWith(error), qPrintable(found));
    QCOMPARE(reading.profile.tables.empty(), !reading.error.isEmpty());
    if (error.isEmpty()) {
        const Profile& profile = reading.profile;
        QCOMPARE(profile.command("get")->parameters["t"].words, QStringList("k"));
        QCOMPARE(profile.tables[0].writeOf(1)->kind, "one");
        QCOMPARE(profile.tables[0].writeOf(2)->kind, "many");
        QVERIFY(profile.tables[0].writeOf(10) == nullptr);
        QCOMPARE(profile.accessOf(CommandProfile::Use::Read, "k")->limit, 63);
        QVERIFY(profile.tableOf(CommandProfile::Use::Read, "many") == nullptr);
    }
}

QTEST_GUILESS_MAIN(TestPointPlans)
#include "tst_point_plans.moc"

#include "cli/command_line.h"
#include "cli/module_description.h"
#include "cli/value_parser.h"
#include "output/message_log.h"
#include "output/renderer.h"
#include "run/line_reader.h"
#include "terminal/live_picture.h"

#include "table.h"

#include <clocale>
#include <limits>
#include <thread>
#include <vector>

Q_DECLARE_METATYPE(RenderedOrder)
Q_DECLARE_METATYPE(Format)
Q_DECLARE_METATYPE(std::optional<Places>)
Q_DECLARE_METATYPE(std::optional<LiveStatus>)
Q_DECLARE_METATYPE(PictureStyle)

namespace {

// Two of them.
Places places(int first)
{
    return {
        "location", QStringList{QString::number(first), QString::number(first + 1)}, false, {}, {}};
}

QVariantList list(const std::initializer_list<QVariant>& values) { return values; }

// A made-up module, unlike the real one where that matters: "speak" has a "host" of its own.
ModuleDescription module()
{
    const QVariant none;
    ModuleDescription module;
    const QList<Declaration> connect{{"host", "strg", "", none}, {"port", "ui16", "", 502}};
    const QList<Declaration> speak{{"host", "strg", "", none}, {"loudNess", "ui16", "", 3}};
    module.commands = {{"connect", "disconnect", "Connects", true, connect, {}},
                       {"speak", {}, "Speaks", false, speak, {}},
                       {"hear", "deafen", "Hears", true, {{"what", "vart", "", none}}, {}}};
    return module;
}

} // namespace

class TestDriverHost : public QObject
{
    Q_OBJECT

private slots:
    void value_data();
    void value();
    void rendering_data();
    void rendering();
    void arguments_data();
    void arguments();
    void inputLines_data();
    void inputLines();
    void picture_data();
    void picture();
    void logOfThreads();
};

void TestDriverHost::value_data() { addRows("values"); }

void TestDriverHost::value()
{
    QFETCH(QStringList, cells);
    QVariant value;
    Misfit misfit;
    const bool isTaken = parseValue(cells[0], cells[1], value, &misfit);
    QCOMPARE(isTaken ? typed(value) : "", cells[2]);
}

void TestDriverHost::rendering_data()
{
    QTest::addColumn<Format>("format");
    QTest::addColumn<RenderedOrder>("order");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("lines");

    const RenderedOrder read{"device", "read", {}, false, places(100), false};
    RenderedOrder typed = read;
    typed.places->isTyped = true;
    typed.places->type = "float32";
    typed.places->unit = "bar";
    RenderedOrder written = read;
    written.saysWritten = true;
    const double inf = std::numeric_limits<double>::infinity();
    const QVariant values = list({21.5, -inf});
    const RenderedOrder ask{"pump \"1\"", "ask", {}, false, {}, false};
    const QVariant words = list({258, 7});
    const QVariant map = QVariantMap{{"info", QByteArray("\x01\xffHi")}, {"name", "a,\"b\"\x1b\n"}};
    const auto row = [](const char* name, Format format, const RenderedOrder& order,
                        const QVariant& value, const char* lines) {
        QTest::newRow(name) << format << order << value << QString::fromLatin1(lines);
    };
    row("text words", Format::Text, read, words, "100  258  0x0102\n101  7  0x0007\n");
    row("text packed", Format::Text, read, list({258}), "258  0x0102\n");
    row("text typed", Format::Text, typed, values, "100  21.5 bar\n101  -inf bar\n");
    row("text states", Format::Text, typed, list({true, false}), "100  on\n101  off\n");
    row("text written", Format::Text, written, list({1}), "written\n");
    row("csv typed", Format::Csv, typed, values,
        "time,location,value,type,unit\n2024-03-09T17:05:42.031Z,100,21.5,float32,bar\n"
        "2024-03-09T17:05:42.031Z,101,-inf,float32,bar\n");
    row("json typed", Format::Json, ask,
        list({21.5, -inf, true, 18446744073709551615ull, "\x1b", QVariantMap{{"a", 0.1}}}),
        "{\"time\":\"2024-03-09T17:05:42.031Z\",\"device\":\"pump \\\"1\\\"\","
        "\"command\":\"ask\",\"event\":\"result\",\"name\":\"answer\",\"value\":"
        "[21.5,\"-inf\",true,18446744073709551615,\"\\u001b\",{\"a\":0.1}]}\n");
    row("text map", Format::Text, ask, map, "info: 01 ff 48 69  |..Hi|\nname: a,\"b\"\\x1b\\x0a\n");
    row("csv words", Format::Csv, read, words,
        "time,location,value\n2024-03-09T17:05:42.031Z,100,258\n2024-03-09T17:05:42.031Z,101,7\n");
    row("csv packed", Format::Csv, read, list({258}),
        "time,location,value\n2024-03-09T17:05:42.031Z,,258\n");
    row("csv map", Format::Csv, ask, map,
        "time,name,index,value\n2024-03-09T17:05:42.031Z,answer,info,01ff4869\n"
        "2024-03-09T17:05:42.031Z,answer,name,\"a,\"\"b\"\"\x1b\n\"\n");
    row("json words", Format::Json, read, words,
        "{\"time\":\"2024-03-09T17:05:42.031Z\",\"device\":\"device\",\"command\":\"read\","
        "\"event\":\"result\",\"name\":\"answer\",\"value\":[258,7]}\n");
    row("json map", Format::Json, ask, map,
        "{\"time\":\"2024-03-09T17:05:42.031Z\",\"device\":\"pump \\\"1\\\"\","
        "\"command\":\"ask\",\"event\":\"result\",\"name\":\"answer\",\"value\":"
        "{\"info\":\"01ff4869\",\"name\":\"a,\\\"b\\\"\\u001b\\n\"}}\n");
}

void TestDriverHost::rendering()
{
    QFETCH(Format, format);
    QFETCH(RenderedOrder, order);
    QFETCH(QVariant, value);
    const QDateTime time({2024, 3, 9}, {18, 5, 42, 31}, Qt::OffsetFromUTC, 3600);
    QTEST(makeRenderer(format, order)->result(time, "answer", value), "lines");
}

void TestDriverHost::arguments_data() { addRows("arguments"); }

void TestDriverHost::arguments()
{
    QFETCH(QStringList, cells);
    const bool isGood = cells.size() == 3;
    const CommandLine read = parseCommandLine(cells[0].split(' '), module());
    QCOMPARE(read.errors.value(0), isGood ? "" : "driver-host: " + cells[3]);
    QCOMPARE(read.exitCode, isGood ? 0 : 2);
    QCOMPARE(read.request.has_value(), isGood);
    const Request request = read.request.value_or(Request());
    QCOMPARE(convVariantMapToString(request.parameters), cells[1]);
    QCOMPARE(convVariantMapToString(request.connectParameters), cells[2]);
}

void TestDriverHost::inputLines_data()
{
    QTest::addColumn<QByteArrayList>("pieces");
    QTest::addColumn<QStringList>("lines"); // of at most 4 bytes, those above it as "too long"

    const auto row = [](const char* name, const QByteArrayList& pieces, const QStringList& lines) {
        QTest::newRow(name) << pieces << lines;
    };
    row("nothing", {}, {});
    row("byte by byte", {"a", "b", "\n", "\n", "c", "\n"}, {"1 ab", "2 ", "3 c"});
    row("the last one has no end", {"a\nb", "c"}, {"1 a", "2 bc"});
    row("just short enough", {"abcd\n", "ab", "cd"}, {"1 abcd", "2 abcd"});
    row("too long at once", {"abcde\nf\n"}, {"1 too long", "2 f"});
    row("too long in pieces", {"abc", "def", "g\nh", "\nabcde"},
        {"1 too long", "2 h", "3 too long"});
    row("a dropped beginning leaves nothing", {"abcde", "\n", "f"}, {"1 too long", "2 f"});
}

void TestDriverHost::inputLines()
{
    QFETCH(QByteArrayList, pieces);
    LineReader reader(4);
    QStringList lines;
    const auto readAll = [&] {
        while (const auto line = reader.next()) {
            lines +=
                QString::number(line->number) + ' ' + (line->tooLong ? "too long" : line->text);
        }
    };
    for (const QByteArray& piece : pieces) {
        reader.append(piece.constData(), piece.size());
        readAll();
    }
    reader.finish();
    readAll();
    QTEST(lines, "lines");
}

void TestDriverHost::picture_data()
{
    using Range = std::optional<Places>;
    QTest::addColumn<Range>("places");
    QTest::addColumn<QVariantList>("results");
    QTest::addColumn<int>("intervalMs"); // of the results
    QTest::addColumn<std::optional<LiveStatus>>("status");
    QTest::addColumn<PictureStyle>("style");
    QTest::addColumn<QStringList>("lines");

    const LiveStatus status{"10.0.0.1:502", true, 200, 3, 0};
    const LiveStatus lost{{}, false, 0, 3, 12};
    const Range range = places(99);
    Range typed = range;
    typed->isTyped = true;
    typed->unit = "bar";
    const QVariantList words{list({7, 65535}), list({8, 0}), list({8, 258})};
    const auto row = [](const char* name, const Range& places, const QVariantList& results,
                        const std::optional<LiveStatus>& shown, const PictureStyle& style,
                        const QStringList& lines, int intervalMs = 100) {
        QTest::newRow(name) << places << results << intervalMs << shown << style << lines;
    };
    row("wide", range, words, status, {80, 24},
        {"  location  value  hex     last change   trend",
         "        99      8  0x0008  17:05:42.131  _^^",
         "*      100    258  0x0102  17:05:42.231  ^__",
         "10.0.0.1:502, every 200 ms, connected, 3 done, 0 failed"});
    row("no time", range, words, status, {49, 24},
        {"  location  value  hex     trend", "        99      8  0x0008  _^^",
         "*      100    258  0x0102  ^__", "10.0.0.1:502, connected, 3 done, 0 failed"});
    row("no trend", range, words, status, {35, 24},
        {"  location  value  hex", "        99      8  0x0008", "*      100    258  0x0102",
         "connected, 3 done, 0 failed"});
    row("nothing but the value", range, words, status, {20, 24},
        {"  location  value", "        99      8", "*      100    258", "connected, 0 failed"});
    row("cut", range, words, status, {8, 3}, {"   99 ~", "* 100 ~", "connec~"});
    row("no room for the header", range, words, status, {20, 3},
        {"   99    8  0x0008", "* 100  258  0x0102", "connected, 0 failed"});
    row("no room for all values", {}, {list({7, 8, 9}), list({7, 8, 9})}, lost, {29, 3},
        {"  values[0]  7  0x0007", "(2 more)", "connection lost, 12 failed"});
    row("two lines", {}, {list({7, 8, 9}), list({7, 8, 9})}, lost, {29, 2},
        {"  values[0]  7  0x0007", "(2 more)"});
    row("one line", range, words, status, {20, 1}, {"  99  8  0x0008"});
    row("before the first value", range, {}, lost, {80, 24},
        {"default interval, connection lost, 3 done, 12 failed"});
    row("colours", range, words, lost, {20, 24, true},
        {"\x1b[2m  location  value\x1b[0m", "        99      8", "\x1b[1m*      100    258\x1b[0m",
         "\x1b[31mconnection lost\x1b[0m"});
    row("typed", typed, {list({21.5, true}), list({-1e-7, false})}, {}, {60, 24},
        {"  location       value  last change   trend", "*       99  -1e-07 bar  17:05:42.131  ^_",
         "*      100         off  17:05:42.131  ^_"});
    row("packed, then fewer", range, {list({1, 2, 3}), list({9}), list({8})}, {},
        {60, 24, false, true},
        {"  name       value  hex     last change   trend",
         "* values[0]      8  0x0008  17:05:42.231  \u2581\u2588\u2587"});
    row("a map", {}, {QVariantMap{{"a", "-1.5"}, {"\u00e4\x1b", QByteArray("\x01")}}}, {}, {60, 9},
        {"  name    value  last change   trend", "  a        -1.5                _",
         "  ??    01  |.|"});
    row("wide letters", {}, {"\u65e5\u672c\u8a9e"}, {}, {15, 9, false, true},
        {"  name    val\u2026", "  values  \u65e5\u2026"});
    row("trends of the last 8", range,
        {list({1e308, 0}), list({"", 1}), list({-1e308, 2}), list({0, 3}), list({0, 4}),
         list({0, 5}), list({0, 6}), list({0, 7}), list({1e308, 8})},
        {}, {43, 9},
        {"  location   value  hex     trend", "*       99  1e+308           _-----^",
         "*      100       8  0x0008  __..--^^"});
    row("fast", {}, {5, 1, 2, 0, 3, 4}, {}, {34, 9},
        {"  name    value  hex     trend", "* values      4  0x0004  _^"}, 10);
}

void TestDriverHost::picture()
{
    QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr);
    QFETCH(std::optional<Places>, places);
    QFETCH(QVariantList, results);
    QFETCH(int, intervalMs);
    QFETCH(std::optional<LiveStatus>, status);
    QFETCH(PictureStyle, style);
    LiveValues values(places);
    QDateTime time({2024, 3, 9}, {17, 5, 42, 31});
    for (const QVariant& result : results) {
        values.take(time, "values", result);
        time = time.addMSecs(intervalMs);
    }
    QTEST(livePicture(values, status, style), "lines");
}

// Host names are looked up on threads of their own.
void TestDriverHost::logOfThreads()
{
    const QtMessageHandler before = qInstallMessageHandler(nullptr);
    MessageLog::install();
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n) {
                qWarning("the same");
                qCritical("lookup 7;\tERROR: OrderId = 7 , no data");
            }
        });
    }
    MessageLog::lastCritical();
    MessageLog::flush();
    for (std::thread& thread : threads) {
        thread.join();
    }
    MessageLog::flush();
    qInstallMessageHandler(before);
    QCOMPARE(MessageLog::lastCritical(), "no data");
}

QTEST_GUILESS_MAIN(TestDriverHost)
#include "tst_driver_host.moc"

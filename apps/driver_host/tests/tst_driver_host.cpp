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

void TestDriverHost::rendering_data() { addRows("renderings"); }

void TestDriverHost::rendering()
{
    QFETCH(QStringList, cells);
    const QMap<QString, Format> formats{
        {"text", Format::Text}, {"csv", Format::Csv}, {"json", Format::Json}};
    const double inf = std::numeric_limits<double>::infinity();
    const QMap<QString, QVariant> made{
        {"reals", list({21.5, -inf})},
        {"mixed",
         list({21.5, -inf, true, 18446744073709551615ull, "\x1b", QVariantMap{{"a", 0.1}}})},
        {"map", QVariantMap{{"info", QByteArray("\x01\xffHi")}, {"name", "a,\"b\"\x1b\n"}}}};
    RenderedOrder order{"device", "read", {}, false, places(100), cells[1] == "written"};
    if (cells[1] == "ask") {
        order = {"pump \"1\"", "ask", {}, false, {}, false};
    } else if (cells[1] == "typed") {
        order.places->isTyped = true;
        order.places->type = "float32";
        order.places->unit = "bar";
    }
    const QDateTime time({2024, 3, 9}, {18, 5, 42, 31}, Qt::OffsetFromUTC, 3600);
    const QVariant value = made.value(cells[2], valueIn(cells[2]));
    QCOMPARE(makeRenderer(formats[cells[0]], order)->result(time, "answer", value),
             valueIn(cells[3]).toString());
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

void TestDriverHost::inputLines_data() { addRows("input_lines"); }

void TestDriverHost::inputLines()
{
    QFETCH(QStringList, cells);
    LineReader reader(4);
    QStringList lines;
    const auto readAll = [&] {
        while (const auto line = reader.next()) {
            lines +=
                QString::number(line->number) + ' ' + (line->tooLong ? "too long" : line->text);
        }
    };
    for (const QVariant& each : valueIn(cells[0]).toList()) {
        const QByteArray piece = each.toByteArray();
        reader.append(piece.constData(), piece.size());
        readAll();
    }
    reader.finish();
    readAll();
    QCOMPARE(lines, valueIn(cells[1]).toStringList());
}

void TestDriverHost::picture_data() { addRows("pictures"); }

void TestDriverHost::picture()
{
    QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr);
    QFETCH(QStringList, cells);
    std::optional<Places> range;
    if (cells[0] != "none") {
        range = places(99);
        range->isTyped = cells[0] == "typed";
        range->unit = cells[0] == "typed" ? "bar" : "";
    }
    LiveValues values(range);
    QDateTime time({2024, 3, 9}, {17, 5, 42, 31});
    const QVariant bytes = QVariantMap{{"a", "-1.5"}, {"\u00e4\x1b", QByteArray("\x01")}};
    const QVariantList results = cells[1] == "bytes" ? list({bytes}) : valueIn(cells[1]).toList();
    for (const QVariant& result : results) {
        values.take(time, "values", result);
        time = time.addMSecs(cells[4].toInt());
    }
    const QMap<QString, std::optional<LiveStatus>> statuses{
        {"status", LiveStatus{"10.0.0.1:502", true, 200, 3, 0}},
        {"lost", LiveStatus{{}, false, 0, 3, 12}}};
    const QStringList style = cells[3].split(' ');
    QCOMPARE(livePicture(values, statuses[cells[2]],
                         {style[0].toInt(), style[1].toInt(), style.contains("colours"),
                          style.contains("unicode")}),
             valueIn(cells[5]).toStringList());
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

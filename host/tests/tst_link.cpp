#include <plugin_management/link_options.h>
#include <runtime/link/translation.h>

#include <QtTest>

Q_DECLARE_METATYPE(LinkOptions)

namespace {

LinkOptions linkOptions(int unit, bool transactionIds)
{
    LinkOptions options;
    options.unit = unit;
    options.transactionIds = transactionIds;
    return options;
}

// A talk, step by step: "w" what the worker writes, "d" what the device sends, "e" nobody waits any
// more, "u" it is another unit's turn, "c" a new connection; behind ">" what comes out on the other
// side.
QString played(Translation& translation, const QString& talk)
{
    QStringList steps;
    for (const QString& step : talk.split(QStringLiteral("; "))) {
        const QString done = step.section(QStringLiteral(" > "), 0, 0);
        const QByteArray bytes = QByteArray::fromHex(done.mid(2).toLatin1());
        QByteArray out;
        switch (done.at(0).toLatin1()) {
        case 'w':
            out = translation.toWire(bytes.constData(), bytes.size());
            break;
        case 'd':
            out = translation.fromWire(bytes.constData(), bytes.size());
            break;
        case 'u':
            translation.setUnit(static_cast<uchar>(bytes.at(0)));
            break;
        case 'e':
            translation.endRequest();
            break;
        default:
            translation.begin();
            break;
        }
        steps.append(out.isEmpty() ? done : done + QLatin1String(" > " + out.toHex()));
    }
    return steps.join(QLatin1String("; "));
}

} // namespace

/// What lies between a worker and its device.
class LinkTest : public QObject
{
    Q_OBJECT

private slots:
    void translation_data();
    void translation();
    void idsComeAgainWhenTheirRepliesHaveCome();
    void refusals_data();
    void refusals();
};

void LinkTest::translation_data()
{
    QTest::addColumn<LinkOptions>("options");
    QTest::addColumn<QString>("talk");
    QTest::addColumn<int>("dropped");
    const auto row = [](const char* name, const LinkOptions& options, const QByteArray& talk,
                        int dropped = 0) {
        QTest::newRow(name) << options << QString::fromLatin1(talk) << dropped;
    };
    const LinkOptions five = linkOptions(5, false);
    const LinkOptions ids = linkOptions(-1, true);
    const LinkOptions both = linkOptions(255, true);
    row("unit", five,
        "w aabb00000006000300640001 > aabb00000006050300640001; "
        "d aabb000000050503020102 > aabb000000050003020102");
    row("exception of the unit", five,
        "w aabb000000020011 > aabb000000020511; d aabb00000003059101 > aabb00000003009101");
    row("unit, and a part of a copy", five,
        "w aabb00000006000300640001 > aabb00000006050300640001; "
        "d aabb000000050503020102aabb00000005 > aabb000000050003020102aabb00000005");
    row("unit, and a part that nobody waits for", five,
        "w aabb00000006000300640001 > aabb00000006050300640001; e ; "
        "d aabb00000005 > aabb00000005");
    row("another unit's", five,
        "w aabb00000006000300640001 > aabb00000006050300640001; d aabb000000050603020102; "
        "d aabb00000003008302; d aabb000000050503020304 > aabb000000050003020304",
        20);
    row("ids", ids,
        "w aabb00000006000300640001 > 000100000006000300640001; "
        "d 0001000000050003020102 > aabb000000050003020102; "
        "w aabb00000006000300640001 > 000200000006000300640001; "
        "d 0002000000050003020304 > aabb000000050003020304");
    row("a copy", ids,
        "w aabb00000006000300640001 > 000100000006000300640001; "
        "d 00010000000500030201020001000000050003020102 > aabb000000050003020102; "
        "d 0001000000050003020102",
        22);
    row("late, and the worker's own id", ids,
        "w aabb00000006000300640001 > 000100000006000300640001; e ; "
        "d 0001000000050003020102; w aabb00000006000300640001 > 000200000006000300640001; "
        "d aabb000000050003020102; d 0001000000050003020102; "
        "d 0002000000050003020304 > aabb000000050003020304",
        33);
    row("right id, wrong unit", both,
        "w aabb00000006000300640001 > 000100000006ff0300640001; d 0001000000050003020102; "
        "d 000100000005ff03020304 > aabb000000050003020304",
        11);
    row("half a late reply, and another unit's turn", both,
        "w aabb00000006000300640001 > 000100000006ff0300640001; e ; d 0001000000; u 05; "
        "w aabb00000006000300640001 > 000200000006050300640001; "
        "d 05ff03020102000200000005050302; d 0304 > aabb000000050003020304",
        11);
    row("in pieces", both,
        "w aabb0000; w 0006000300640001 > 000100000006ff0300640001; "
        "d 00; d 01000000; d 05ff0302; d 010200 > aabb000000050003020102; "
        "d 01000000030083; d 02",
        9);
    row("a new connection", ids,
        "w aabb00000006000300640001 > 000100000006000300640001; d 00010000; c ; "
        "d 0001000000050003020102; w aabb00000006000300640001 > 000200000006000300640001; "
        "d 0002000000050003020304 > aabb000000050003020304",
        11);
    // What no longer tells where a frame begins goes through: the worker's framing refuses it.
    row("no frame", ids,
        "w aabb00000006000300640001 > 000100000006000300640001; "
        "d 485454502f312e31 > 485454502f312e31; "
        "d 0001000000050003020102 > 0001000000050003020102");
    LinkOptions serial = linkOptions(0x11, false); // its frames: as serial analyzers show them
    serial.rtu = true;
    const QByteArray read = "w aabb000000060003006b0003 > 1103006b00037687; ";
    row("RTU read", serial, read + "d 110306ae415652434049ad > aabb00000009000306ae4156524340");
    row("RTU exception", serial, read + "d 118302c134 > aabb00000003008302");
    row("RTU write", serial,
        "w aabb00000006000600010003 > 1106000100039a9b; "
        "d 1106000100039a9b > aabb00000006000600010003");
    row("RTU identification in pieces", serial,
        "w aabb000000020011 > 1111cdec; d 111104; d 4142; d 43446d; d ab > "
        "aabb0000000700110441424344");
    row("RTU from another unit", serial, read + "d 018302c0; d f1118302c134 > aabb00000003008302",
        5);
    row("RTU with a wrong CRC", serial, read + "d 118302c135 > 000000000000118302c135");
    row("RTU function that nobody knows", serial, read + "d 1155000000 > 0000000000001155000000");
    row("RTU surplus", serial, read + "d 118302c13400 > aabb0000000300830200");
    row("RTU unasked", serial, read + "e ; d 118302c134 > 118302c134");
    row("a request that is no frame", ids, "w 474554202f3a > 474554202f3a");
}

void LinkTest::translation()
{
    QFETCH(LinkOptions, options);
    QFETCH(QString, talk);
    const auto translation = Translation::make(options);
    QCOMPARE(played(*translation, talk), talk);
    QTEST(translation->takeDropped().bytes, "dropped");
}

// After 65535 requests their ids begin anew; that of the third, whose reply has not come, is left
// out until it has.
void LinkTest::idsComeAgainWhenTheirRepliesHaveCome()
{
    const auto translation = Translation::make(linkOptions(-1, true));
    const QByteArray request = QByteArray::fromHex("aabb00000006000300640001");
    QByteArray reply = QByteArray::fromHex("0000000000050003020000");
    QList<QByteArray> ids;
    for (int i = 1; i <= 65536 + 65536 + 4; ++i) {
        reply.replace(0, 2, translation->toWire(request.constData(), request.size()).left(2));
        ids.append(reply.left(2).toHex());
        if (i == 65536 + 10) {
            const QByteArray late = QByteArray::fromHex("0003000000050003020000");
            QVERIFY(translation->fromWire(late.constData(), late.size()).isEmpty());
        }
        if (i == 3) {
            translation->endRequest();
        } else {
            QVERIFY(!translation->fromWire(reply.constData(), reply.size()).isEmpty());
        }
    }
    QCOMPARE(ids.mid(65534, 5), (QList<QByteArray>{"ffff", "0000", "0001", "0002", "0004"}));
    QCOMPARE(ids.mid(65534 + 65535, 5),
             (QList<QByteArray>{"ffff", "0000", "0001", "0002", "0003"}));
}

void LinkTest::refusals_data()
{
    QTest::addColumn<ParameterMap>("given");
    QTest::addColumn<QString>("says"); // nothing: it is taken
    const auto row = [](const char* name, const QVariant& value, const char* says) {
        QTest::newRow(qPrintable(QLatin1String(name) + QLatin1Char(' ') + value.toString()))
            << ParameterMap{{QString::fromLatin1(name), value}} << QString::fromLatin1(says);
    };
    row("unit", 0, "");
    row("unit", QStringLiteral("0xff"), "");
    row("unit", 256, "unit: '256' is not a number 0 to 255");
    row("unit", -1, "unit: '-1' is not a number 0 to 255");
    row("unit", 1.5, "unit: '1.5' is not a number 0 to 255");
    row("unit", true, "unit: 'true' is not a number 0 to 255");
    row("transactionIds", 1, "");
    row("transactionIds", 2, "transactionIds: '2' is not");
    row("units", 1, "units: there is no such link option");
}

void LinkTest::refusals()
{
    QFETCH(ParameterMap, given);
    QFETCH(QString, says);
    LinkOptions options;
    LinkOptionFault fault;
    QCOMPARE(readLinkOptions(given, options, fault), says.isEmpty());
    const QString said = fault.option + QLatin1String(": ") + fault.text;
    QVERIFY2(said.startsWith(says), qPrintable(said));
}

QTEST_GUILESS_MAIN(LinkTest)

#include "tst_link.moc"

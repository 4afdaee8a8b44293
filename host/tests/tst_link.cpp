#include <plugin_management/link_options.h>
#include <runtime/link/translation.h>

#include "table.h"

namespace {

LinkOptions linkOptions(const QString& text)
{
    const QStringList words = text.split(QLatin1Char(' '));
    LinkOptions options;
    options.unit = words[0] == QLatin1String("unit") ? words[1].toInt() : -1;
    options.transactionIds = words.contains(QLatin1String("ids"));
    options.rtu = words.contains(QLatin1String("rtu"));
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

void LinkTest::translation_data() { addRows("translations"); }

void LinkTest::translation()
{
    QFETCH(QStringList, cells);
    const auto translation = Translation::make(linkOptions(cells[0]));
    QCOMPARE(played(*translation, cells[1]), cells[1]);
    QCOMPARE(translation->takeDropped().bytes, cells.value(2).toInt());
}

// After 65535 requests their ids begin anew; that of the third, whose reply has not come, is left
// out until it has.
void LinkTest::idsComeAgainWhenTheirRepliesHaveCome()
{
    const auto translation = Translation::make(linkOptions(QStringLiteral("ids")));
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

void LinkTest::refusals_data() { addRows("link_options"); }

void LinkTest::refusals()
{
    QFETCH(QStringList, cells);
    LinkOptions options;
    LinkOptionFault fault;
    QCOMPARE(readLinkOptions({{cells[0], valueIn(cells[1])}}, options, fault), cells[2].isEmpty());
    const QString said = fault.option + QLatin1String(": ") + fault.text;
    QVERIFY2(said.startsWith(cells[2]), qPrintable(said));
}

QTEST_GUILESS_MAIN(LinkTest)

#include "tst_link.moc"

#include "modbus_codec.h"
#include "table.h"

namespace {

constexpr char untouched = '\xee';

// The arguments of a call in a table, converted to what the codec takes.
struct Number
{
    int value;
    operator quint8() const { return static_cast<quint8>(value); }
    operator quint16() const { return static_cast<quint16>(value); }
    operator int() const { return value; }
};

const quint8* raw(const QByteArray& bytes)
{
    return reinterpret_cast<const quint8*>(bytes.constData());
}

QByteArray pattern(int size)
{
    QByteArray data(size, '\0');
    for (int i = 0; i < size; ++i) {
        data[i] = static_cast<char>(7 * i);
    }
    return data;
}

int build(const QString& builder, const QVector<Number>& n, int mode, quint8* b)
{
    if (builder == "finish") {
        std::copy_n("\x01\x03\x00\x00\x00\x01", 6, b);
        return modbus_finish_frame(mode, b, n[0], n[1]);
    }
    return builder == "read" ? modbus_build_read_request(n[0], mode, b, n[1], n[2], n[3])
        : builder == "register"
        ? modbus_build_write_single_register(n[0], mode, b, n[1], n[2], n[3])
        : builder == "coil" ? modbus_build_write_single_coil(mode, b, n[0], n[1], n[2])
        : builder == "many" ? modbus_build_write_multiple_registers(
              n[0], mode, b, raw(pattern(2 * n[3].value)), n[1], n[2], n[3])
        : builder == "server" ? modbus_build_report_server_id(mode, b, n[0])
                              : modbus_write_tcp_header(mode, b);
}

quint32 judge(const QString& question, const QVector<Number>& n, const QByteArray& frame)
{
    // A block of exactly the frame's size, so that a sanitizer sees a read beyond its end.
    const std::vector<quint8> block(frame.begin(), frame.end());
    const auto size = static_cast<quint16>(block.size());
    return question == "header"  ? modbus_check_reply_header(block.data(), size, n[0], n[1])
        : question == "received" ? modbus_check_reply_header(block.data(), n[0], n[1], n[2])
        : question == "frame"    ? modbus_check_frame(n[0], block.data(), size)
        : question == "uint16"   ? modbus_reply_uint16(block.data(), n[0])
        : question == "uint32"   ? modbus_reply_uint32(block.data(), n[0])
        : question == "crc"      ? modbus_crc16(block.data(), size)
                                 : modbus_lrc(block.data(), size);
}

QVector<Number> numbers(const QStringList& texts)
{
    QVector<Number> result;
    for (const QString& text : texts) {
        result.append(Number{text.toInt()});
    }
    return result;
}

} // namespace

class TestCodec : public QObject
{
    Q_OBJECT

private slots:
    void frames_data() { addRows(QFINDTESTDATA("tables/frames.txt")); }
    void frames()
    {
        QFETCH(QStringList, cells);
        const QStringList call = QString(QTest::currentDataTag()).split(' ');
        const int modes[] = {0, 1, 2, 3, -1};
        for (int i = 0; i < cells.size(); ++i) {
            if (cells[i] == "-") {
                continue;
            }
            const int length = cells[i].section(' ', 0, 0).toInt();
            const QByteArray hex = cells[i].section(' ', 1).toLatin1();
            QByteArray expected = QByteArray::fromHex(hex);
            if (hex.contains("..")) {
                const int cut = hex.indexOf("..");
                const QByteArray end = QByteArray::fromHex(hex.mid(cut));
                expected = QByteArray::fromHex(hex.left(cut));
                expected += call[0] == "many" ? pattern(2 * call[4].toInt())
                                              : QByteArray(length, untouched);
                expected.truncate(length - end.size());
                expected += end;
            }
            QByteArray buffer(140000, untouched);
            const QByteArray rest(buffer.size() - expected.size(), untouched);
            QCOMPARE(build(call[0], numbers(call.mid(1)), modes[i],
                           reinterpret_cast<quint8*>(buffer.data())),
                     length);
            QCOMPARE(buffer.left(expected.size()).toHex(), expected.toHex());
            QVERIFY(buffer.endsWith(rest));
        }
    }

    void judgements_data() { addRows(QFINDTESTDATA("tables/judgements.txt")); }
    void judgements()
    {
        QFETCH(QStringList, cells);
        QStringList call = QString(QTest::currentDataTag()).split(' ');
        const QByteArray frame = QByteArray::fromHex(call.takeLast().toLatin1());
        QCOMPARE(judge(call[0], numbers(call.mid(1)), frame), cells[0].toUInt());
    }

    void crcOfEveryByte()
    {
        QByteArray all(256, '\0');
        std::iota(all.begin(), all.end(), '\0');
        QCOMPARE(int(modbus_crc16(raw(all), 256)), 0xde6c);
    }
};

QTEST_APPLESS_MAIN(TestCodec)
#include "tst_codec.moc"

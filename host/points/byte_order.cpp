#include <points/byte_order.h>

#include <algorithm>

namespace Points {

namespace {

quint16 swapped(quint16 word) { return quint16(word << 8 | word >> 8); }

// The same there and back.
QVector<quint16> turned(QVector<quint16> words, Order order)
{
    if (order == Order::CDAB || order == Order::DCBA) {
        std::reverse(words.begin(), words.end());
    }
    if (order == Order::BADC || order == Order::DCBA) {
        std::transform(words.begin(), words.end(), words.begin(), swapped);
    }
    return words;
}

} // namespace

quint64 numberOf(const QVector<quint16>& words, Order order)
{
    quint64 number = 0;
    const QVector<quint16> inOrder = turned(words, order);
    for (const quint16 word : inOrder) {
        number = number << 16 | word;
    }
    return number;
}

QVector<quint16> wordsOf(quint64 number, int count, Order order)
{
    QVector<quint16> words(count);
    for (int i = count - 1; i >= 0; --i, number >>= 16) {
        words[i] = quint16(number);
    }
    return turned(words, order);
}

QByteArray bytesOf(const QVector<quint16>& words, Order order)
{
    QByteArray bytes;
    const QVector<quint16> inOrder = turned(words, order);
    for (const quint16 word : inOrder) {
        bytes.append(char(word >> 8)).append(char(word & 0xFF));
    }
    return bytes;
}

QVector<quint16> wordsOf(const QByteArray& bytes, Order order)
{
    QVector<quint16> words;
    for (int i = 0; i + 1 < bytes.size(); i += 2) {
        words.append(quint16(uchar(bytes[i]) << 8 | uchar(bytes[i + 1])));
    }
    return turned(words, order);
}

} // namespace Points

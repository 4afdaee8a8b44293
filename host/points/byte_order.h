#pragma once

#include <points/data_type.h>

#include <QByteArray>
#include <QVector>

// Not installed: how values of up to 64 bits, and texts, lie in words.

namespace Points {

/// The number in 1 to 4 words.
quint64 numberOf(const QVector<quint16>& words, Order order);
/// The lowest 16 * \a count bits of \a number as words.
QVector<quint16> wordsOf(quint64 number, int count, Order order);
/// The bytes of the words, two each.
QByteArray bytesOf(const QVector<quint16>& words, Order order);
/// The words of an even number of bytes.
QVector<quint16> wordsOf(const QByteArray& bytes, Order order);

} // namespace Points

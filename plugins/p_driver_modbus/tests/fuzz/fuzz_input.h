#pragma once

#include <QByteArray>
#include <QVariant>

/// The bytes of one run, taken from the front. Behind their end there are zeros.
class FuzzInput
{
public:
    FuzzInput(const quint8* data, size_t size)
        : m_bytes(reinterpret_cast<const char*>(data), static_cast<int>(size))
    {
    }

    quint8 byte() { return static_cast<quint8>(take(1).leftJustified(1, '\0').at(0)); }
    QByteArray take(int size)
    {
        const QByteArray part = m_bytes.left(size);
        m_bytes.remove(0, part.size());
        return part;
    }
    QByteArray rest() { return take(m_bytes.size()); }

    /// A value of any type that a user or a script can hand over.
    QVariant value()
    {
        const quint8 type = byte();
        const auto number = take(4).toHex().toUInt(nullptr, 16);
        switch (type % 8) {
        case 0:
            return static_cast<int>(number);
        case 1:
            return byte();
        case 2:
            return QString::fromLatin1(take(number % 32));
        case 3:
            return {};
        case 4:
            return number * 0.25;
        case 5:
            return QStringList(QString::number(number));
        case 6:
            return take(number % 8);
        default:
            return list(static_cast<int>(number % 130));
        }
    }

private:
    QVariantList list(int size)
    {
        QVariantList values;
        while (values.size() < size && !m_bytes.isEmpty()) {
            values.append(value());
        }
        return values;
    }

    QByteArray m_bytes;
};

extern "C" int LLVMFuzzerTestOneInput(const quint8* data, size_t size);

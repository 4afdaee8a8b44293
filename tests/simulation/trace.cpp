#include "trace.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

QByteArray readable(const QByteArray& bytes)
{
    const bool isText = std::all_of(bytes.begin(), bytes.end(),
                                    [](char byte) { return byte >= ' ' && byte <= '~'; });
    return isText ? bytes : bytes.toHex(' ');
}

} // namespace

void Trace::add(const char* bytes, std::size_t size)
{
    constexpr quint64 prime = 0x100000001B3U;
    for (std::size_t i = 0; i < size; ++i) {
        m_hash = (m_hash ^ static_cast<uchar>(bytes[i])) * prime;
    }
}

// A number at a time instead of its bytes: this is a fifth of a quiet world's time else.
void Trace::add(qint64 number)
{
    constexpr quint64 odd = 0x9E3779B97F4A7C15U;
    m_hash = (m_hash ^ static_cast<quint64>(number)) * odd;
    m_hash ^= m_hash >> 29;
}

void Trace::note(qint64 nowUs, int object, const char* what, qint64 number, const QByteArray& bytes)
{
    add(nowUs);
    add(object);
    add(number);
    add(what, std::strlen(what));
    add(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    if (!m_isShown) {
        return;
    }
    constexpr qint64 usPerSecond = 1000000;
    std::printf("%9lld.%06lld %3d  %-22s %8lld  %s\n", static_cast<long long>(nowUs / usPerSecond),
                static_cast<long long>(nowUs % usPerSecond), object, what,
                static_cast<long long>(number), readable(bytes).constData());
}

void Trace::fail(qint64 nowUs, int object, const QString& rule)
{
    note(nowUs, object, "BROKEN");
    if (m_isShown) {
        std::printf("%s\n", qPrintable(rule));
    }
    if (m_failure.isEmpty()) {
        m_failedAtUs = nowUs;
        m_failure = QStringLiteral("object %1 at %2 s: %3")
                        .arg(object)
                        .arg(static_cast<double>(nowUs) / 1e6, 0, 'f', 6)
                        .arg(rule);
    }
}

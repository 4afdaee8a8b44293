#pragma once

#include <QByteArray>
#include <QString>

/// What has happened in a world: a hash of all of it, and its text for who wants to read it.
class Trace
{
public:
    explicit Trace(bool isShown) : m_isShown(isShown) { }

    /// \a what is a word or two; of \a object, -1 for none.
    void note(qint64 nowUs, int object, const char* what, qint64 number = 0,
              const QByteArray& bytes = {});
    /// A rule is broken. The first one counts.
    void fail(qint64 nowUs, int object, const QString& rule);

    quint64 hash() const { return m_hash; }
    const QString& failure() const { return m_failure; }
    qint64 failedAtUs() const { return m_failedAtUs; }
    bool failed() const { return !m_failure.isEmpty(); }

private:
    void add(const char* bytes, std::size_t size);
    void add(qint64 number);

    bool m_isShown;
    quint64 m_hash = 0xCBF29CE484222325U; // FNV-1a
    QString m_failure;
    qint64 m_failedAtUs = 0;
};

#pragma once

#include "run/line_reader.h"

#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include <memory>

/// Reads a file, a pipe or a terminal line by line from the event loop, which it never blocks and
/// never keeps for long. Reading can be paused, and starts paused.
class OrderInput : public QObject
{
    Q_OBJECT

public:
    /// \a file is a descriptor open for reading; it stays the caller's.
    explicit OrderInput(int file, QObject* parent = nullptr);

    /// While paused, no line comes and nothing is read.
    void setPaused(bool paused);
    /// Reads no more; ended() does not come any more.
    void close();
    /// True for a file on a disk, which is there as a whole.
    bool isRegularFile() const { return m_notifier == nullptr; }

signals:
    void lineRead(const InputLine& line);
    /// The last line has been read, or no more can be: \a error then tells why.
    void ended(const QString& error);

private:
    void takeReadable();
    void schedule();
    void step();
    void handOver();
    void readMore();

    int m_file;
    std::unique_ptr<QSocketNotifier> m_notifier; // null for a regular file, which is always ready
    LineReader m_lines;
    QString m_error;
    bool m_paused = true;
    bool m_closed = false;
    bool m_atEnd = false;
    bool m_scheduled = false;
};

/// Opens what holds the orders: a file, or standard input for "-". Its descriptor, or -1 with the
/// reason in \a error.
int openOrders(const QString& name, QString* error);

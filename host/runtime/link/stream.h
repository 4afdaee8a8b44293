#pragma once

#include <QString>

/// A connection that is more than a descriptor to read from and write to.
class Stream
{
public:
    virtual ~Stream() = default;

    /// Takes what has arrived: how many bytes, 0 when there is nothing, -1 when it has ended.
    virtual qint64 receive(char* data, qint64 size) = 0;
    /// How many bytes have left, 0 when none can now, -1 when it has ended.
    virtual qint64 send(const char* data, qint64 size) = 0;
    virtual qint64 waiting() const = 0;
    /// Why it has ended, for people.
    virtual QString trouble() const = 0;
};

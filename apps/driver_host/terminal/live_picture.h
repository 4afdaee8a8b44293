#pragma once

#include "terminal/live_values.h"

#include <QStringList>

#include <optional>

/// What the last line of the picture tells.
struct LiveStatus
{
    QString device; ///< its address, or empty
    bool connected = true;
    int intervalMs = 0; ///< 0: whatever the module takes when it is told none
    quint64 done = 0; ///< readings since the order began
    quint64 failed = 0;
};

/// The terminal to draw for.
struct PictureStyle
{
    int columns = 80; ///< 1 or more
    int rows = 24; ///< 1 or more
    bool color = false;
    bool unicode = false; ///< it shows UTF-8; else the picture is plain ASCII
};

/// The values as lines for a terminal: a header, one line per value, and \a status, if any. A line
/// is at most columns - 1 wide, and there are at most rows lines.
///
/// A value's line begins with "*" when it changed last. Where there is no room for all columns, the
/// time of the last change goes first, then the trend, then the hexadecimal form; a text that is
/// cut ends in a character that says so. Values that have no line are counted in a line of their
/// own.
QStringList livePicture(const LiveValues& values, const std::optional<LiveStatus>& status,
                        const PictureStyle& style);

#pragma once

#include <QString>

/// A serial line and how it is run, as one text: DEVICE[,BAUD[,FORMAT]][,echo]. What is left out is
/// what Modbus over Serial Line V1.02 has as usual, sections 2.5.1 and 3.2: 19200 baud, 8E1.
struct SerialSettings
{
    QString device; ///< its file, such as "/dev/ttyUSB0"
    int baud = 19200;
    char parity = 'E'; ///< N, E or O
    int stopBits = 1;
    bool echoes = false; ///< all that is sent comes back first, as on some lines of two wires

    /// Reads \a text. Why that cannot be; empty when all is well.
    QString load(const QString& text);

    /// How long that many characters are on the way.
    qint64 durationUs(int characters) const;
    /// The silence that ends a frame, section 2.5.1.1: 3.5 characters, 1.75 ms above 19200 baud.
    qint64 silenceUs() const;
};

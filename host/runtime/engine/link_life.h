#pragma once

#include <QtGlobal>

/// What is known of the device at the other end of a link that is open.
struct LinkLife
{
    bool hasAnswered = false; ///< on this link
    int silences = 0; ///< requests in a row that got no reply on it
    qint64 trafficUs = 0; ///< when something went over it last, as far as is known
};

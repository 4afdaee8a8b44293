#pragma once

#include <QString>

/// Opens those of the three standard files that the program was started without. To be called
/// before anything else opens a file, which would get their numbers and then the results.
void openStandardFiles();

/// Tells why the program cannot begin, on one line; empty when it can. Event loop, signals, module
/// and the search for a host's name need descriptors, and some of what they stand on aborts the
/// program where there are none.
QString tooFewDescriptors();

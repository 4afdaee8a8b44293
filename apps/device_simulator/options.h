#pragma once

#include "misbehaviour.h"

#include <QHostAddress>
#include <QModbusDataUnit>
#include <QVector>

#include <optional>

/// What the command line asks for.
struct Options
{
    QHostAddress address;
    quint16 port = 0; ///< 0 lets the system choose
    QVector<QModbusDataUnit> presets; ///< register contents to begin with, in order
    std::optional<Misbehaviour> misbehaviour;
    bool quiet = false;

    /// Reads the command line into these options. True to go on; otherwise the answer has been
    /// printed (help and version on standard output, a usage error in one line on standard error)
    /// and \a exitCode is to be returned: 0, or 2 for an error.
    bool parse(int argc, char** argv, int& exitCode);
};

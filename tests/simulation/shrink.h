#pragma once

#include "simulation.h"

#include <string>
#include <vector>

/// What is left out of a world, as the command line takes it.
struct LeftOut
{
    std::vector<std::string> parts;
    int objects = 0; ///< 0: as many as there are
    qint64 busyUs = 0; ///< 0: as long as it is

    /// False when a part is none; \a part is it.
    bool applyTo(Plan& plan, std::string& part) const;
    std::string arguments() const;
};

/// Leaves out of a world that fails one thing after the other, as long as it fails. Gives back what
/// can be missing.
LeftOut shrink(quint64 seed, DAbstractPlugin* root);

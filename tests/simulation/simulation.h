#pragma once

#include "plan.h"

#include <QString>

class DAbstractPlugin;

/// What has become of a world.
struct Findings
{
    QString failure; ///< the first rule that was broken; empty when none was
    qint64 failedAtUs = 0; ///< since the beginning of the world
    quint64 hash = 0;
    quint64 orders = 0; ///< answers and ends
    quint64 staleCopies = 0;
    quint64 spoiled = 0; ///< replies
    qint64 virtualUs = 0;
};

/// Lets a world happen until so many replies were spoiled.
Findings simulateSpoiled(const Plan& plan, DAbstractPlugin* root, quint64 spoiled);
/// Lets a world happen from its beginning to its end.
Findings simulate(const Plan& plan, DAbstractPlugin* root, bool isTraced);

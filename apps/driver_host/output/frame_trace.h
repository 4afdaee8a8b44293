#pragma once

#include <QString>

class DAbstractWorker;

/// Shows every frame of \a worker on standard error with its time, and before it \a device unless
/// that is empty.
void traceFrames(DAbstractWorker& worker, const QString& device);

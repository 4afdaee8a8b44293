#include "options.h"
#include "simulator.h"
#include "termination_signals.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    Options options;
    int exitCode = 0;
    if (!options.parse(argc, argv, exitCode)) {
        return exitCode;
    }
    const QCoreApplication application(argc, argv);
    const TerminationSignals signalSource;
    QObject::connect(&signalSource, &TerminationSignals::received, &application,
                     &QCoreApplication::quit);
    Simulator simulator(options);
    return simulator.start() ? QCoreApplication::exec() : 1;
}

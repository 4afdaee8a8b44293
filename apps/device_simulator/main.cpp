#include "options.h"
#include "simulator.h"

#include <common/signal_source.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication::setApplicationName(QStringLiteral("device-simulator"));
    Options options;
    int exitCode = 0;
    if (!options.parse(argc, argv, exitCode)) {
        return exitCode;
    }
    const QCoreApplication application(argc, argv);
    const SignalSource signalSource({SIGINT, SIGTERM});
    QObject::connect(&signalSource, &SignalSource::arrived, &application, &QCoreApplication::quit);
    Simulator simulator(options);
    return simulator.start() ? QCoreApplication::exec() : 1;
}

#include "cli/command_line.h"
#include "cli/descriptors.h"
#include "cli/module_file.h"
#include "cli/module_info.h"
#include "exit_codes.h"
#include "output/console.h"
#include "output/frame_trace.h"
#include "output/message_log.h"
#include "run/run_session.h"
#include "run/session.h"
#include "terminal/live_terminal.h"

#include <common/failure.h>
#include <common/signal_source.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>

#include <QCoreApplication>

namespace {

int showInfo(const ModuleDescription& module, Format format, Console& console)
{
    console.write(format == Format::Json ? moduleInfoJson(module) : moduleInfoText(module));
    return ExitDone;
}

// Runs a Session or a RunSession to its end, and answers its exit code.
template <typename AnySession>
int execute(AnySession& session, Console& console)
{
    const SignalSource signalSource({SIGINT, SIGTERM, SIGHUP}, LiveTerminal::restoreAtOnce);
    QObject::connect(&signalSource, &SignalSource::arrived, &session, &AnySession::interrupt);
    QObject::connect(&console, &Console::outputClosed, &session, &AnySession::outputClosed);
    QObject::connect(&session, &AnySession::ended,
                     [](int exitCode) { QCoreApplication::exit(exitCode); });
    QMetaObject::invokeMethod(&session, &AnySession::start, Qt::QueuedConnection);
    return QCoreApplication::exec();
}

int runOrder(const Module& module, const Request& request, Console& console)
{
    DAbstractPlugin& device = *module.object.plugin;
    QString refusal;
    if (!device.setLinkOptions(request.link, &refusal)) {
        console.error(failureLine(refusal));
        return ExitUsage;
    }
    if (request.verbose && device.worker() != nullptr) {
        traceFrames(*device.worker(), QString());
    }
    Session session(device, module.description, request, console);
    return execute(session, console);
}

int runOrders(const Module& module, const Request& request, Console& console)
{
    QString error;
    const int file = openOrders(request.orders, &error);
    if (file < 0) {
        console.error(
            failureLine(QStringLiteral("cannot read '%1': %2").arg(request.orders, error)));
        return ExitUsage;
    }
    RunSession session(file, module, request, console);
    return execute(session, console);
}

int carryOut(const Module& module, const Request& request, Console& console)
{
    if (module.description.find(request.command) != nullptr || request.scan) {
        return runOrder(module, request, console);
    }
    return request.orders.isEmpty() ? showInfo(module.description, request.format, console)
                                    : runOrders(module, request, console);
}

// Help and version are answered without a module as well, as far as they go.
int answer(const CommandLine& line, const QString& moduleError, Console& console)
{
    console.write(line.output);
    if (line.output.isEmpty() && !moduleError.isEmpty()) {
        console.error(failureLine(moduleError));
        return ExitNoModule;
    }
    for (const QString& error : line.errors) {
        console.error(error);
    }
    return line.exitCode;
}

int run(const QStringList& arguments)
{
    MessageLog::install();
    const Module module = loadModule(pluginArgument(arguments), QStringLiteral("device"));
    const CommandLine line = parseCommandLine(arguments, module.description);
    const Request request = line.request.value_or(Request());
    Console console(request.quiet, request.color);
    if (!line.request || module.object.plugin == nullptr) {
        return answer(line, module.error, console);
    }
    if (!module.profileError.isEmpty()) {
        console.error(failureLine(module.profileError));
    }
    for (const QString& note : request.notes) {
        console.note(failureLine(note));
    }
    MessageLog::setVerbose(request.verbose);
    const int exitCode = carryOut(module, request, console);
    return exitCode == ExitDone && console.hasLostOutput() ? int(ExitOrderFailed) : exitCode;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication::setApplicationName(QStringLiteral("driver-host"));
    openStandardFiles();
    const QString obstacle = tooFewDescriptors();
    if (!obstacle.isEmpty()) {
        writeErrorLine(failureLine(obstacle));
        return ExitUsage;
    }
    qputenv("QT_NO_GLIB", "1"); // an order takes 15,300 instead of 16,900 instructions
    QCoreApplication application(argc, argv);
    return run(QCoreApplication::arguments().mid(1));
}

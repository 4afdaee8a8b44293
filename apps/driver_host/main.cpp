#include "command_line.h"
#include "console.h"
#include "exit_codes.h"
#include "message_log.h"
#include "module_file.h"
#include "module_info.h"
#include "session.h"
#include "signal_watcher.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>

#include <QCoreApplication>

namespace {

void showFrame(bool outgoing, const QByteArray& frame)
{
    writeStandardError(
        QStringLiteral("%1 %2 %3")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz")),
                 QLatin1String(outgoing ? "->" : "<-"), QString::fromLatin1(frame.toHex(' '))));
}

int showInfo(const ModuleDescription& module, Format format, Console& console)
{
    console.write(format == Format::Json ? moduleInfoJson(module) : moduleInfoText(module));
    return ExitDone;
}

int runOrder(DAbstractPlugin& device, const ModuleDescription& module, const Request& request,
             Console& console)
{
    SignalWatcher signalWatcher;
    Session session(device, module, request, console);
    QObject::connect(&signalWatcher, &SignalWatcher::stopRequested, &session, &Session::interrupt);
    QObject::connect(&console, &Console::outputClosed, &session, &Session::outputClosed);
    QObject::connect(&session, &Session::ended,
                     [](int exitCode) { QCoreApplication::exit(exitCode); });
    QMetaObject::invokeMethod(&session, &Session::start, Qt::QueuedConnection);
    return QCoreApplication::exec();
}

// Help and version are answered without a module as well, as far as they go.
int answer(const CommandLine& line, const QString& moduleError, Console& console)
{
    console.write(line.output);
    if (line.output.isEmpty() && !moduleError.isEmpty()) {
        console.error(QStringLiteral("driver-host: ") + moduleError);
        return ExitNoModule;
    }
    if (!line.error.isEmpty()) {
        console.error(line.error);
    }
    return line.exitCode;
}

int run(const QStringList& arguments)
{
    MessageLog::install();
    Module module = loadModule(pluginArgument(arguments), QStringLiteral("device"));
    const CommandLine line = parseCommandLine(arguments, module.description);
    const Request request = line.request.value_or(Request());
    Console console(request.quiet, request.color);
    if (!line.request || module.device == nullptr) {
        return answer(line, module.error, console);
    }
    MessageLog::setVerbose(request.verbose);
    if (request.verbose && module.device->worker() != nullptr) {
        module.device->worker()->setFrameTracer(showFrame);
    }
    const bool ofModule = module.description.find(request.command) != nullptr;
    const int exitCode = !ofModule ? showInfo(module.description, request.format, console)
                                   : runOrder(*module.device, module.description, request, console);
    return exitCode == ExitDone && console.hasLostOutput() ? int(ExitOrderFailed) : exitCode;
}

} // namespace

int main(int argc, char* argv[])
{
    openStandardFiles();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("driver-host"));
    return run(QCoreApplication::arguments().mid(1));
}

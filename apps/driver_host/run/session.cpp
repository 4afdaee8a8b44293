#include "run/session.h"

#include "cli/module_description.h"
#include "exit_codes.h"
#include "output/append_file.h"
#include "output/console.h"
#include "output/failure_text.h"
#include "output/message_log.h"
#include "output/poll_statistics.h"
#include "profile/scan_command.h"
#include "terminal/live_terminal.h"
#include "terminal/live_view.h"
#include "work/confirmation.h"
#include "work/point_order.h"
#include "work/scan_order.h"

#include <common/failure.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_orders.h>

#include <utility>

namespace {

using Code = OrderFailure::Code;

QDateTime now() { return QDateTime::currentDateTimeUtc(); }

QString endpointText(const Request& request, const ParameterMap& parameters)
{
    if (!request.link.serial.isEmpty()) {
        return request.link.serial.section(QLatin1Char(','), 0, 0);
    }
    return QStringLiteral("%1:%2").arg(parameters.value(QStringLiteral("host")).toString(),
                                       parameters.value(QStringLiteral("port")).toString());
}

RenderedOrder renderedOrder(const QString& device, const CommandDescription& command,
                            const Request& request)
{
    RenderedOrder order;
    order.device = device;
    order.command = command.name;
    order.endpoint = command.isConnect() ? endpointText(request, request.parameters) : QString();
    order.recurrent = command.recurrent;
    order.places = request.places;
    order.saysWritten = request.saysWritten;
    return order;
}

// On the way to a connection, whatever goes wrong leaves none - unless the order itself is wrong.
int exitCodeOf(Code code, bool connecting)
{
    const bool refused = code == Code::Usage;
    return code == Code::NotConnected || (connecting && !refused) ? ExitNoConnection
                                                                  : ExitOrderFailed;
}

} // namespace

Session::Session(DAbstractPlugin& device, const ModuleDescription& module, const Request& request,
                 Console& console, QObject* parent)
    : QObject(parent), m_device(device), m_profile(module.profile), m_request(request),
      m_console(console)
{
    const CommandDescription* found = module.find(request.command);
    const CommandDescription command = found != nullptr ? *found : scanCommand();
    m_isConnect = command.isConnect();
    m_needsConnection = module.connectCommand() != nullptr && !m_isConnect;
    m_recurrent = command.recurrent;
    m_connectLimit.setSingleShot(true);
    connect(&m_connectLimit, &QTimer::timeout, this, &Session::giveUpConnecting);
    m_rendered = renderedOrder(device.objectName(), command, request);
    m_renderer = makeRenderer(request.format, m_rendered);
    if (m_recurrent && !m_isConnect && request.format == Format::Text && !request.plain
        && LiveTerminal::isPossible()) {
        makeView(m_rendered);
    }
    watchOrders();
}

Session::~Session() = default;

void Session::makeView(const RenderedOrder& order)
{
    LiveView::Options options;
    options.places = order.places;
    options.color = m_console.hasColorOfResults();
    if (!m_request.quiet) {
        options.status = [this] { return liveStatus(); };
    }
    m_view = std::make_unique<LiveView>(options, m_console);
}

void Session::updateView()
{
    if (m_view) {
        m_view->update();
    }
}

LiveStatus Session::liveStatus() const
{
    const WorkerStatistics after = workerStatistics();
    LiveStatus status;
    status.device =
        m_needsConnection ? endpointText(m_request, m_request.connectParameters) : QString();
    status.connected = !m_isLost;
    status.intervalMs = m_request.parameters.value(QStringLiteral("recurrentInterval")).toInt();
    status.done = after.done - m_before.done;
    status.failed = failedCount(after) - failedCount(m_before);
    return status;
}

void Session::watchOrders()
{
    const DOrders* orders = m_device.orders();
    connect(orders, &DOrders::sigOrderResult, this, &Session::takeResult);
    connect(orders, &DOrders::sigOrderTrouble, this, &Session::takeTrouble);
    connect(orders, &DOrders::sigOrderFinished, this, &Session::takeFinished);
}

void Session::start()
{
    if (!openFile()) {
        m_exitCode = ExitUsage;
        end();
        return;
    }
    if ((m_needsConnection || m_isConnect) && m_request.connectLimitS > 0) {
        m_connectLimit.start(m_request.connectLimitS * 1000);
    }
    if (m_needsConnection) {
        startConnect();
    } else {
        startOrder();
    }
}

void Session::startConnect()
{
    m_state = State::Connecting;
    m_connectId = tryStart(QStringLiteral("connect"), m_request.connectParameters);
}

void Session::startOrder()
{
    m_state = State::Running;
    m_before = workerStatistics();
    m_clock.start();
    if (m_request.points) {
        startPoints();
    } else if (m_request.scan) {
        startScan();
    } else {
        m_orderId = tryStart(m_request.command, m_request.parameters);
    }
}

quint64 Session::tryStart(const QString& command, const ParameterMap& parameters)
{
    MessageLog::forgetCritical();
    QString refusal;
    const quint64 id = m_device.orders()->start(command, parameters, &refusal);
    if (id == 0) {
        const OrderFailure refused = OrderFailure::of(Code::Usage, refusal);
        m_exitCode = ExitOrderFailed;
        fail(refused, failureText(command, refused, subject(parameters, refused)));
        close();
    }
    return id;
}

void Session::interrupt(int signal) { stop(m_recurrent ? int(ExitDone) : 128 + signal); }

void Session::outputClosed()
{
    m_outputClosed = true;
    if (m_recurrent) {
        stop(ExitDone);
    }
}

void Session::stop(int exitCode)
{
    if (m_stopCode || m_state == State::Closing || m_state == State::Ended) {
        return; // it is ending already, with the code that it has earned
    }
    m_stopCode = exitCode;
    if (m_state == State::Running) {
        stopOrder();
    } else {
        showStopped();
        close();
    }
}

void Session::close()
{
    m_state = State::Closing;
    m_connectLimit.stop();
    if (m_connectId == 0 || !m_device.orders()->stop(m_connectId)) {
        end();
    }
}

void Session::end()
{
    if (m_state == State::Ended) {
        return;
    }
    m_state = State::Ended;
    m_console.clearProgress();
    showRepeats();
    MessageLog::flush();
    if (m_view) {
        m_view->finish();
    }
    if (!m_outputClosed && !m_statistics.isEmpty()) {
        m_console.note(m_statistics);
    }
    emit ended(m_stopCode.value_or(m_exitCode));
}

void Session::takeResult(quint64 orderId, const QString& name, const QVariant& value)
{
    const bool ofConnect = m_isConnect || orderId == m_connectId;
    if (ofConnect && name == QLatin1String("connected")) {
        takeConnectionState(value.toBool());
    } else if (orderId == m_orderId) {
        showResult(name, value);
    }
}

void Session::showResult(const QString& name, const QVariant& value)
{
    const bool enough = m_request.count > 0 && m_resultCount >= m_request.count;
    if (enough) {
        return;
    }
    showRepeats();
    const QDateTime time = now();
    if (m_view) {
        m_view->take(time, name, value);
    } else {
        m_console.write(m_renderer->result(time, name, value));
    }
    addToFile(time, name, value);
    if (++m_resultCount == m_request.count) {
        stopOrder();
    }
}

void Session::takeConnectionState(bool connected)
{
    if (connected == m_connected) {
        return; // still not connected is no news: the order's end or its trouble tells the reason
    }
    m_connected = connected;
    m_wasConnected = true;
    m_connectLimit.stop();
    if (m_state == State::Connecting) {
        startOrder();
    } else if (m_stopCode || m_state != State::Running) {
        return; // the user asked for it, and does not want to hear of a loss
    } else if (m_isConnect) {
        showResult(QStringLiteral("connected"), connected);
    } else if (m_recurrent) {
        showRepeats();
        m_isLost = !connected;
        tellConnection(connected);
        updateView();
    }
}

void Session::takeTrouble(quint64 orderId, const OrderFailure& failure)
{
    if (orderId == m_connectId) {
        m_loss = failure;
        if (m_state == State::Connecting) {
            m_console.note(noConnectionYetText(failure));
        }
    } else if (orderId == m_orderId && m_isConnect) {
        showTrouble(failure,
                    m_wasConnected ? lossText(m_profile, failure) : noConnectionYetText(failure));
    } else if (orderId == m_orderId) {
        showTrouble(
            failure,
            failureText(m_request.command, failure, subject(m_request.parameters, failure)));
    }
}

void Session::takeFinished(const DOrder& order)
{
    if (order.id == m_connectId) {
        connectFinished(order);
    } else if (order.id == m_orderId) {
        orderFinished(order);
    }
}

void Session::connectFinished(const DOrder& order)
{
    m_connectId = 0;
    if (m_state == State::Connecting) {
        const OrderFailure why = order.state == DOrder::State::Done
            ? OrderFailure::of(Code::NotConnected,
                               QStringLiteral("'connect' ended without telling of a connection"))
            : order.failure;
        m_exitCode = exitCodeOf(why.code, true);
        fail(why, connectFailureText(m_request.command, why));
    }
    if (m_state != State::Running) { // else the order, which now has no connection, ends first
        end();
    }
}

// The framework bounds every attempt to connect, but not how long a module keeps to itself that it
// has connected.
void Session::giveUpConnecting()
{
    if (m_isConnect) {
        m_connectId = std::exchange(m_orderId, 0); // from here on it is only to be closed
    }
    const QString text = QStringLiteral("%1 failed: 'connect' has told of no connection within "
                                        "%2 s%3; --connect-limit gives it longer");
    const QString why =
        m_loss.text.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(m_loss.text);
    m_exitCode = ExitNoConnection;
    fail(OrderFailure::of(Code::NotConnected, {}),
         text.arg(m_request.command, QString::number(m_request.connectLimitS), why));
    close();
}

void Session::orderFinished(const DOrder& order)
{
    m_orderId = 0;
    const bool stopped = order.state == DOrder::State::Stopped;
    if (stopped && m_recurrent) {
        takeStatistics();
    }
    if (order.state == DOrder::State::Done || (stopped && m_recurrent)) {
        endDone(order.results);
    } else if (stopped) {
        showStopped();
    } else {
        m_exitCode = exitCodeOf(order.failure.code, m_isConnect);
        fail(order.failure,
             m_isConnect ? connectFailureText(order.command, order.failure)
                         : failureText(order.command, order.failure,
                                       subject(order.parameters, order.failure)));
    }
    close();
}

void Session::fail(const OrderFailure& failure, const QString& text)
{
    showRepeats();
    showEnd(failure, text);
    m_console.error(text);
}

void Session::showEnd(const OrderFailure& failure, const QString& text)
{
    m_console.write(m_renderer->error(now(), failure, text));
    m_console.write(m_renderer->finished(now(), false, {}));
}

// Whoever sent the signal knows, so this is told to the readers of results only.
void Session::showStopped()
{
    showEnd(OrderFailure::of(Code::Stopped, {}),
            QStringLiteral("%1 was stopped").arg(m_request.command));
}

// A repetition that failed: into the results where their format has a place for it, else to
// standard error, once however often it comes.
void Session::showTrouble(const OrderFailure& failure, const QString& text)
{
    const QString rendered = m_renderer->error(now(), failure, text);
    if (!rendered.isEmpty()) {
        m_console.write(rendered);
        return;
    }
    for (const QString& line : m_troubles.add(text, text)) {
        m_console.error(line);
    }
    updateView();
}

void Session::showRepeats()
{
    for (const QString& line : m_troubles.flush()) {
        m_console.error(line);
    }
}

WorkerStatistics Session::workerStatistics() const
{
    const DAbstractWorker* worker = m_device.worker();
    return worker != nullptr ? worker->statistics() : WorkerStatistics();
}

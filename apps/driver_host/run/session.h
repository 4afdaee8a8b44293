#pragma once

#include "cli/command_line.h"
#include "output/failure_subject.h"
#include "run/repeat_filter.h"

#include <plugin_management/d_order.h>
#include <plugin_management/worker_statistics.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class Console;
class AppendFile;
class LiveView;
class PointOrder;
class ScanOrder;
class DAbstractPlugin;
struct LiveStatus;
struct ModuleDescription;

/// One order on one device, from the connection to the end: connects when the module has a command
/// for that, runs the order, shows what it reports, disconnects.
///
/// Everything runs on the event loop; ended() comes exactly once, perhaps out of start().
class Session : public QObject
{
    Q_OBJECT

public:
    /// \a device, whose commands have been declared, \a module and \a console must outlive the
    /// session.
    Session(DAbstractPlugin& device, const ModuleDescription& module, const Request& request,
            Console& console, QObject* parent = nullptr);
    ~Session() override;

    void start();
    /// Stops the order and disconnects, as the user asked by this signal. That is how a command
    /// that goes on ends well; any other one ends with 128 + \a signal.
    void interrupt(int signal);
    /// Nobody reads the results any more: a command that goes on ends quietly, and well, as a
    /// reader such as "head" has what it wanted. A one-shot order is still carried out.
    void outputClosed();

signals:
    void ended(int exitCode);

private:
    enum class State { Idle, Connecting, Running, Closing, Ended };

    void watchOrders();
    void startConnect();
    void startOrder();
    void startPoints();
    void startScan();
    void stopOrder();
    quint64 tryStart(const QString& command, const ParameterMap& parameters);
    void takeResult(quint64 orderId, const QString& name, const QVariant& value);
    void makeView(const RenderedOrder& order);
    bool openFile();
    void addToFile(const QDateTime& time, const QString& name, const QVariant& value);
    void updateView();
    LiveStatus liveStatus() const;
    void showResult(const QString& name, const QVariant& value);
    void takeConnectionState(bool connected);
    void takeTrouble(quint64 orderId, const OrderFailure& failure);
    void takeFinished(const DOrder& order);
    void connectFinished(const DOrder& order);
    void giveUpConnecting();
    void orderFinished(const DOrder& order);
    void workFinished(const OrderFailure& failure);
    void endDone(const ParameterMap& results);
    void takeStatistics();
    FailureSubject subject(const ParameterMap& parameters, const OrderFailure& failure) const;
    FailureSubject workSubject(const OrderFailure& failure) const;
    bool hasAnswered() const;
    void tellConnection(bool connected);
    void fail(const OrderFailure& failure, const QString& text);
    void showEnd(const OrderFailure& failure, const QString& text);
    void showStopped();
    void showTrouble(const OrderFailure& failure, const QString& text);
    void showRepeats();
    void stop(int exitCode);
    void close();
    void end();
    WorkerStatistics workerStatistics() const;

    DAbstractPlugin& m_device;
    const Points::Profile& m_profile;
    const Request m_request;
    Console& m_console;
    std::unique_ptr<Renderer> m_renderer;
    RepeatFilter m_troubles{QStringLiteral("failure")};
    State m_state = State::Idle;
    QTimer m_connectLimit; // runs until the first connection
    bool m_isConnect;
    bool m_needsConnection;
    bool m_recurrent;
    bool m_connected = false;
    bool m_wasConnected = false; // at some time
    OrderFailure m_loss; ///< the last one of the connection
    quint64 m_connectId = 0;
    quint64 m_orderId = 0;
    int m_resultCount = 0;
    int m_exitCode = 0;
    std::optional<int> m_stopCode; // set once the user has had enough
    bool m_outputClosed = false;
    QElapsedTimer m_clock;
    WorkerStatistics m_before; // when the order began
    QString m_statistics;
    bool m_isLost = false; // the connection, while the order goes on
    RenderedOrder m_rendered;
    std::unique_ptr<AppendFile> m_file; // null when the results go to no file
    std::unique_ptr<Renderer> m_rows; // for it
    std::unique_ptr<LiveView> m_view; // null when results go line by line
    std::unique_ptr<ScanOrder> m_scan; // of the command "scan"
    std::unique_ptr<PointOrder> m_points; // of a request that takes more than one order
    ParameterMap m_lastResults; // of these two
};

#pragma once

#include "cli/module_file.h"
#include "output/event_json.h"
#include "output/failure_subject.h"
#include "run/line_reader.h"
#include "run/order_line.h"

#include <plugin_management/d_orders.h>

#include <QHash>
#include <QObject>
#include <QSet>

#include <deque>
#include <map>

class Console;

/// How far a run has come.
struct RunCounts
{
    quint64 orders = 0; ///< lines that began an order, right or wrong
    quint64 finished = 0;
    quint64 failed = 0; ///< of the finished ones
    quint64 wrongLines = 0; ///< lines that were no order
};

/// Runs the orders of many devices at once, each device a plug-in object of its own from the first
/// order that names it, and writes their events to standard output as JSON lines.
///
/// Every line that begins an order ends with one "finished" event, whatever happens.
class Runner : public QObject, private OrderListener
{
    Q_OBJECT

public:
    /// \a module and \a console must outlive the runner. With \a verbose, every frame is shown.
    Runner(const Module& module, Console& console, bool verbose, QObject* parent = nullptr);
    ~Runner() override;

    /// Does what the line says, or tells what is wrong with it.
    void take(const InputLine& input);
    /// False while so many orders are running that no more should be given: a device's worker
    /// refuses what its queue cannot hold.
    bool hasRoom() const;
    /// No more lines will come: ends when the last order that ends by itself is finished, and stops
    /// the rest.
    void endInput();
    /// Stops everything, and then ends.
    void stopAll();
    const RunCounts& counts() const { return m_counts; }

signals:
    /// hasRoom() has become true.
    void roomAgain();
    /// No order is running any more, and none will come. Emitted once.
    void ended();

private:
    struct Device
    {
        PluginObject object;
        bool isSerial = false; // on a serial line, and needs no address
        int oneShots = 0; // running orders that end by themselves
        int connects = 0; // running orders that keep a connection
    };

    struct Running
    {
        EventSource source;
        Device* device;
        bool recurrent;
        bool isConnect;
        bool wasConnected; // it keeps a connection, and has had one
        QString moduleMessage; // what the module said when it took the order
    };

    QString carryOut(const OrderLine& line);
    QString checkOrder(const OrderLine& line, ParameterMap& parameters) const;
    QString checkId(const OrderLine& line) const;
    QString unknownCommand(const QString& name) const;
    QString startOrder(const OrderLine& line);
    QString stopOrder(const OrderLine& line);
    QString tellStatistics(const OrderLine& line);
    QString setLink(const OrderLine& line);
    void refuse(const OrderLine& line, const QString& why);

    Device* device(const QString& name);
    void watch(DAbstractPlugin& plugin);
    void enter(quint64 orderId, const OrderLine& line, Device& device);
    Running leave(quint64 orderId);

    void orderResult(quint64 orderId, const QString& name, const QVariant& value) override;
    void orderTrouble(quint64 orderId, const OrderFailure& failure) override;
    void orderFinished(const DOrder& order) override;
    QString endText(const DOrder& order, const OrderFailure& failure, const Running& running) const;
    OrderFailure notConfirmed(const DOrder& order) const;
    FailureSubject subject(const Running& running, const DOrder& order, const OrderFailure& failure,
                           const QString& said) const;
    void followProfile(const OrderLine& line, ParameterMap& parameters);
    bool lacksConnect(const DOrder& order, const Running& running) const;
    void writeFinished(const EventSource& source, bool ok, const ParameterMap& results);
    void rememberEnded(const QJsonValue& id);
    void stopRunning();
    void settle();

    const Module& m_module;
    Console& m_console;
    bool m_verbose;
    std::map<QString, Device> m_devices; // a map, as orders keep pointers into it
    QHash<quint64, Running> m_running;
    QHash<QString, quint64> m_orderIds; // of the running orders, by their id in JSON
    std::deque<QByteArray> m_lastEnded; // the ids of finished orders, as digests
    QHash<QByteArray, int> m_endedIds; // how often each of them stands there
    QSet<QString> m_told; // parameters that nobody declares and that were told of
    int m_oneShots = 0;
    int m_fullDevices = 0;
    bool m_inputEnded = false;
    bool m_stopping = false;
    bool m_ended = false;
    RunCounts m_counts;
};

#pragma once

#include <plugin_management/d_orders.h>
#include <points/profile.h>
#include <points/table_scan.h>

#include <QTimer>

/// How to find out what a device has.
struct ScanPlan
{
    QString command; ///< of the module: reads one item
    ParameterMap parameters; ///< of each order, but for address, kind and count
    int pauseMs = 20; ///< between two requests
    int mostRequests = 1000;
};

/// Finds which tables a device has, and from where to where, by reading single items, one after the
/// other with a pause between. It writes nothing.
///
/// Everything runs on the event loop. A slot must not destroy it.
class ScanOrder : public QObject
{
    Q_OBJECT

public:
    /// \a orders, those of the device, and \a profile must outlive it.
    ScanOrder(DOrders& orders, const Points::Profile& profile, const ScanPlan& plan,
              QObject* parent = nullptr);

    void start() { ask(); }
    /// Ends it, once the request that is out has been answered or given up.
    void stop();
    /// The parameters of the request that is out, or was last.
    const ParameterMap& subject() const { return m_request; }

signals:
    /// A table has been looked through: what was found, and the same as lines for people.
    void scanned(const QString& table, const QVariantMap& found, const QStringList& lines);
    void progress(const QString& text);
    /// The end, exactly once; a failure of None: done, of Stopped: stopped.
    void finished(const OrderFailure& failure);

private:
    const Points::Table& table() const { return m_profile.tables[m_table]; }
    const Points::CommandProfile& command() const { return *m_profile.command(m_plan.command); }
    void ask();
    void request(int item);
    void takeFinished(const DOrder& order);
    void take(const OrderFailure& failure);
    void tellTable();
    void end(const OrderFailure& failure);

    DOrders& m_orders;
    const Points::Profile& m_profile;
    const ScanPlan m_plan;
    QTimer m_pause;
    std::size_t m_table = 0;
    Points::TableScan m_scan;
    QString m_why; // the table is not there
    ParameterMap m_request;
    quint64 m_orderId = 0;
    int m_requests = 0;
    bool m_stopping = false;
    bool m_ended = false;
};

#pragma once

#include "work/point_plan.h"

#include <plugin_management/d_orders.h>

#include <QTimer>

/// Carries out a plan as if it were one order: request after request, and at the end one result or
/// one failure. Of a plan that goes on, each reading has its result or its trouble.
///
/// Values of one result come from as many requests as the range takes, one after the other.
/// Everything runs on the event loop. A slot must not destroy it.
class PointOrder : public QObject
{
    Q_OBJECT

public:
    /// \a orders, those of the device, must outlive it.
    PointOrder(DOrders& orders, const PointPlan& plan, QObject* parent = nullptr);

    void start();
    /// Ends it, once the request that is out has been answered or given up.
    void stop();
    /// Readings that were not made in time because the one before still went on.
    quint64 skippedCount() const { return m_skipped; }
    /// What a failure is about: the parameters of an order for the part that failed.
    ParameterMap subject() const;
    /// How many items had been written when a write failed.
    int writtenCount() const { return m_written; }

signals:
    void result(const QVariant& values);
    /// A reading failed, and the next one comes.
    void trouble(const OrderFailure& failure);
    /// The end, exactly once; \a failure of None: done, of Stopped: stopped.
    void finished(const OrderFailure& failure);

private:
    bool isRead() const { return m_plan.states.isEmpty(); }
    void begin();
    void tick();
    void ask();
    ParameterMap request() const;
    void takeFinished(const DOrder& order);
    void takeReply(const ParameterMap& results);
    void takeFailure(const OrderFailure& failure);
    void takeWritten(const ParameterMap& results);
    void complete();
    void fail(const OrderFailure& failure);
    void end(const OrderFailure& failure);
    QVariant values(QString* misfit) const;

    DOrders& m_orders;
    const PointPlan m_plan;
    Points::RangeReading m_reading;
    QTimer m_timer;
    quint64 m_orderId = 0; // of the request that is out
    int m_written = 0;
    quint64 m_skipped = 0;
    bool m_busy = false; // between the first request of a reading and its end
    bool m_stopping = false;
    bool m_ended = false;
};

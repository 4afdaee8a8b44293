#pragma once

#include <plugin_management/types.h>

#include <deque>
#include <memory>
#include <vector>

/// An order as the worker holds it.
struct WorkerOrder
{
    quint64 id = 0; ///< 0: the keep-alive
    WorkerFunction function;
    ParameterMap parameters;
    int timeoutMs = 0;
    int intervalMs = 0; ///< 0: a one-shot order
    bool needsConnection = true;
    bool endsConnection = false;
    bool stopped = false; ///< nobody waits for its outcome any more
    bool due = false; ///< of a recurrent order: an instance waits to run
    bool running = false; ///< of a recurrent order: an instance is being run
    qint64 nextTickMs = 0;

    bool recurrent() const { return intervalMs > 0; }
};

using WorkerOrderPtr = std::shared_ptr<WorkerOrder>;

/// What a worker has yet to do: one-shot orders in order of arrival before recurrent ones that are
/// due, the one that has waited longest first.
class WorkerQueue
{
public:
    static constexpr std::size_t capacity = 1024;

    bool full() const { return m_oneShots.size() + m_recurrent.size() >= capacity; }
    void add(const WorkerOrderPtr& order, qint64 nowMs);
    /// Puts an order that was taken, but never sent, back in front.
    void putBack(const WorkerOrderPtr& order);
    /// Takes the order out (a recurrent one for good). Null when it is not there.
    WorkerOrderPtr remove(quint64 id);
    /// The next order to run, null when there is none. Without \a connected only orders that need
    /// no connection are given.
    WorkerOrderPtr takeNext(bool connected);
    /// True when the order to end the connection is the next one-shot order.
    bool endsConnectionNext() const
    {
        return !m_oneShots.empty() && m_oneShots.front()->endsConnection;
    }
    /// Takes everything that waits for a connection; recurrent orders stay for their next tick.
    std::vector<WorkerOrderPtr> takeWaiting();
    /// Makes due what has come to its time and skips the ticks that were missed.
    void tick(qint64 nowMs);
    /// An instance of a recurrent order has ended: ticks that came meanwhile are skipped.
    void instanceEnded(WorkerOrder& order, qint64 nowMs);
    /// When the next recurrent order falls due, -1 for never.
    qint64 nextTickMs() const;
    quint64 ticksSkipped() const { return m_ticksSkipped; }

private:
    WorkerOrderPtr takeOneShot(bool connected);
    WorkerOrderPtr takeDue();

    std::deque<WorkerOrderPtr> m_oneShots;
    std::vector<WorkerOrderPtr> m_recurrent;
    quint64 m_ticksSkipped = 0;
};

#include <plugin_management/worker_queue_p.h>

#include <algorithm>
#include <functional>

namespace {

template <typename Container>
auto findById(Container& orders, quint64 id)
{
    return std::find_if(orders.begin(), orders.end(),
                        [id](const WorkerOrderPtr& order) { return order->id == id; });
}

template <typename Container>
WorkerOrderPtr takeById(Container& orders, quint64 id)
{
    const auto it = findById(orders, id);
    if (it == orders.end()) {
        return nullptr;
    }
    WorkerOrderPtr order = *it;
    orders.erase(it);
    return order;
}

// Moves the order's next tick past now and tells how many ticks that passed over.
quint64 catchUp(WorkerOrder& order, qint64 nowMs)
{
    if (order.nextTickMs > nowMs) {
        return 0;
    }
    const qint64 passed = (nowMs - order.nextTickMs) / order.intervalMs + 1;
    order.nextTickMs += passed * order.intervalMs;
    return static_cast<quint64>(passed);
}

} // namespace

void WorkerQueue::add(const WorkerOrderPtr& order, qint64 nowMs)
{
    if (!order->recurrent()) {
        m_oneShots.push_back(order);
        return;
    }
    order->due = true;
    order->nextTickMs = nowMs + order->intervalMs;
    m_recurrent.push_back(order);
}

void WorkerQueue::putBack(const WorkerOrderPtr& order)
{
    if (order->recurrent()) {
        order->running = false;
        order->due = true;
    } else {
        m_oneShots.push_front(order);
    }
}

WorkerOrderPtr WorkerQueue::remove(quint64 id)
{
    WorkerOrderPtr order = takeById(m_oneShots, id);
    return order ? order : takeById(m_recurrent, id);
}

WorkerOrderPtr WorkerQueue::takeNext(bool connected)
{
    WorkerOrderPtr order = takeOneShot(connected);
    return order || !connected ? order : takeDue();
}

WorkerOrderPtr WorkerQueue::takeOneShot(bool connected)
{
    if (connected && !m_oneShots.empty()) {
        WorkerOrderPtr order = std::move(m_oneShots.front());
        m_oneShots.pop_front();
        return order;
    }
    const auto it = std::find_if(m_oneShots.begin(), m_oneShots.end(),
                                 [](const auto& order) { return !order->needsConnection; });
    if (it == m_oneShots.end()) {
        return nullptr;
    }
    WorkerOrderPtr order = std::move(*it);
    m_oneShots.erase(it);
    return order;
}

WorkerOrderPtr WorkerQueue::takeDue()
{
    WorkerOrderPtr longestWaiting;
    for (const WorkerOrderPtr& order : m_recurrent) {
        if (order->due
            && (!longestWaiting
                || order->nextTickMs - order->intervalMs
                    < longestWaiting->nextTickMs - longestWaiting->intervalMs)) {
            longestWaiting = order;
        }
    }
    if (longestWaiting) {
        longestWaiting->due = false;
        longestWaiting->running = true;
    }
    return longestWaiting;
}

std::vector<WorkerOrderPtr> WorkerQueue::takeWaiting()
{
    const auto waits = [](const WorkerOrderPtr& order) { return order->needsConnection; };
    const auto firstWaiting =
        std::stable_partition(m_oneShots.begin(), m_oneShots.end(), std::not_fn(waits));
    std::vector<WorkerOrderPtr> waiting(firstWaiting, m_oneShots.end());
    m_oneShots.erase(firstWaiting, m_oneShots.end());
    while (WorkerOrderPtr order = takeDue()) {
        waiting.push_back(std::move(order));
    }
    return waiting;
}

void WorkerQueue::tick(qint64 nowMs)
{
    for (const WorkerOrderPtr& order : m_recurrent) {
        if (order->due || order->running || order->nextTickMs > nowMs) {
            continue;
        }
        m_ticksSkipped += catchUp(*order, nowMs) - 1;
        order->due = true;
    }
}

void WorkerQueue::instanceEnded(WorkerOrder& order, qint64 nowMs)
{
    order.running = false;
    m_ticksSkipped += catchUp(order, nowMs);
}

qint64 WorkerQueue::nextTickMs() const
{
    qint64 next = -1;
    for (const WorkerOrderPtr& order : m_recurrent) {
        const bool waits = !order->due && !order->running;
        if (waits && (next < 0 || order->nextTickMs < next)) {
            next = order->nextTickMs;
        }
    }
    return next;
}

#pragma once

#include <plugin_management/types.h>

#include <limits>
#include <list>
#include <memory>
#include <vector>

/// A call of a worker's function, as the worker holds it until it is over. In this order it fits
/// one line of memory with its count of users.
struct WorkerInstruction
{
    quint64 id = 0; ///< 0: the keep-alive
    ParameterMap parameters;
    qint64 nextTickUs = 0; ///< of a recurrent one
    int limitMs = 0; ///< from the write of the request
    int intervalMs = 0; ///< 0: it runs once
    int function = -1; ///< its number among the worker's functions
    bool needsLink = true;
    bool endsLink = false;
    bool stopped = false; ///< nobody waits for its outcome any more
    bool due = false; ///< of a recurrent one: a run is due
    bool running = false; ///< of a recurrent one: it is being run

    bool recurrent() const { return intervalMs > 0; }
    qint64 intervalUs() const { return qint64{intervalMs} * 1000; }
};

using WorkerInstructionPtr = std::shared_ptr<WorkerInstruction>;

/// What a worker has yet to do: instructions that run once in order of arrival, before recurrent
/// ones that are due, the one that has waited longest first. Times are microseconds.
class InstructionQueue
{
public:
    static constexpr std::size_t capacity = 1024;
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    bool full() const
    {
        return (m_first ? 1 : 0) + m_others.size() + m_recurrent.size() >= capacity;
    }
    void add(const WorkerInstructionPtr& instruction, qint64 nowUs);
    /// Puts one that was popped, but never sent, back in front.
    void putBack(const WorkerInstructionPtr& instruction);
    /// Takes the instruction out (a recurrent one for good). False when it is not there.
    bool remove(quint64 id);
    /// The next one to run, null when there is none.
    WorkerInstructionPtr popNext();
    /// True when the next one to run is there, and needs a link.
    bool needsLinkNext() const;
    /// The next one to run among those that need no link.
    WorkerInstructionPtr popNextWithoutLink();
    /// True when the next one that runs once ends the link.
    bool endsLinkNext() const { return m_first && m_first->endsLink; }
    /// Pops everything that waits for a link; recurrent ones stay for their next tick.
    std::vector<WorkerInstructionPtr> popWaiting();
    /// Makes due what has come to its time and skips the ticks that were missed.
    void tick(qint64 nowUs);
    /// A run of a recurrent instruction has ended: ticks that came meanwhile are skipped.
    void runEnded(WorkerInstruction& instruction, qint64 nowUs);
    /// When the next recurrent instruction falls due.
    qint64 nextTickUs() const;
    quint64 ticksSkipped() const { return m_ticksSkipped; }

private:
    WorkerInstructionPtr popFirst();
    WorkerInstructionPtr popDue();

    // Those that run once. There is mostly one at a time, which so takes 70 instructions less.
    WorkerInstructionPtr m_first;
    std::list<WorkerInstructionPtr> m_others; // a deque touches two lines of memory more
    std::vector<WorkerInstructionPtr> m_recurrent;
    quint64 m_ticksSkipped = 0;
};

#pragma once

#include "random.h"
#include "trace.h"

#include <functional>
#include <vector>

/// Virtual time, and what happens in it. There is one world at a time.
///
/// Outside is what goes on whether the process runs or not: devices and the wire. Inside is what
/// the process does: it waits while the process is stopped.
class World
{
public:
    using Happening = std::function<void()>;

    World(quint64 seed, bool isTraced);
    ~World();
    Q_DISABLE_COPY(World)

    static World* current();

    qint64 nowUs() const { return m_nowUs; }
    /// Tells moments of one microsecond apart.
    quint64 moment() { return ++m_moment; }

    void outside(qint64 delayUs, Happening happening);
    void inside(qint64 delayUs, Happening happening);

    /// When the next thing happens.
    qint64 nextUs() const;
    /// Lets time pass up to \a us, and happen what is due by then.
    void passTo(qint64 us);
    /// The process is stopped: only what is outside happens.
    void stopProcess(qint64 us);
    /// Until all is calm, other work of the machine takes up to so long of some turns of the loop.
    void setHeldUp(qint64 us) { m_heldUpUs = us; }
    /// In a turn of the loop.
    void holdUp();
    /// For how long the process has been stopped.
    qint64 stoppedUs() const { return m_stoppedUs; }

    void note(int object, const char* what, qint64 number = 0, const QByteArray& bytes = {})
    {
        m_trace.note(m_nowUs, object, what, number, bytes);
    }
    void fail(int object, const QString& rule) { m_trace.fail(m_nowUs, object, rule); }

    /// All is well from here on.
    void calmDown() { m_isCalm = true; }
    bool isCalm() const { return m_isCalm; }

    Trace& trace() { return m_trace; }
    /// Of the machine: how long things take, and which of two comes first.
    Random& chance() { return m_chance; }

    static constexpr qint64 never = Q_INT64_C(0x7FFFFFFFFFFFFFFF);

private:
    struct Event
    {
        qint64 atUs;
        quint64 number;
        Happening happening;
    };
    using Events = std::vector<Event>; // a heap

    void add(Events& events, qint64 delayUs, Happening happening);
    bool runFirst(Events& events, qint64 untilUs);
    static qint64 firstUs(const Events& events);

    qint64 m_nowUs = 1000000000; // as a clock of a machine that has been running
    qint64 m_stoppedUs = 0;
    qint64 m_heldUpUs = 0;
    bool m_isCalm = false;
    quint64 m_moment = 0;
    quint64 m_numbers = 0;
    Events m_outside;
    Events m_inside;
    Trace m_trace;
    Random m_chance;
};

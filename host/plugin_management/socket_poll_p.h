#pragma once

#include <plugin_management/fast_delegate.h>

#include <QtGlobal>

#include <vector>

/// A set of descriptors that are waited for together. What a wait costs does not grow with their
/// number, only with how many are ready.
class SocketPoll
{
public:
    /// Is called with what the descriptor is ready for (EPOLLIN, EPOLLHUP, ...).
    using Handler = fastdelegate::Delegate<void, quint32>;

    SocketPoll();
    ~SocketPoll();
    Q_DISABLE_COPY(SocketPoll)

    /// Itself a descriptor: readable as long as one of the set is ready.
    int descriptor() const { return m_poll; }

    /// Calls \a handler in every wait() that finds \a descriptor ready for \a events. False, with
    /// errno, when the system refuses; EPERM for a file, which is always ready.
    bool watch(int descriptor, quint32 events, const Handler& handler);
    /// Changes what a watched descriptor is waited for.
    bool change(int descriptor, quint32 events);
    void unwatch(int descriptor);

    /// Waits up to \a limitMs (-1: for ever) and calls the handlers of what is ready. Handlers may
    /// watch, unwatch, and wait themselves; the set must outlive the call. Returns how many it
    /// called.
    int wait(int limitMs);
    /// As wait(0), for a set of which something is known to be ready: of a single descriptor the
    /// system need not be asked.
    int callReady();
    bool isAnyReady() const;

private:
    struct Watched
    {
        Handler handler;
        quint32 generation = 0; ///< tells a descriptor from an earlier one of the same number
    };

    bool control(int operation, int descriptor, quint32 events) const;
    int call(int descriptor, quint32 generation, quint32 events);

    std::vector<Watched> m_watched; ///< by descriptor
    int m_poll;
    int m_count = 0;
    int m_newest = -1;
    quint32 m_generation = 0;
};

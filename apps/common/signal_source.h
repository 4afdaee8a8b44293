#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <map>
#include <vector>

/// Brings signals into the event loop, in the order in which they come.
///
/// There may be several objects at a time, of different signals. Those that come after the object
/// has gone do nothing, so that a program that is ending keeps its exit code. SIGHUP stays ignored
/// where it is, as nohup wants it.
class SignalSource : public QObject
{
    Q_OBJECT

public:
    /// Called by the second signal before it ends the program; it runs in a signal handler.
    using BeforeEnd = void (*)();

    /// With \a beforeEnd, the second signal ends the program at once with 128 + its number, even
    /// when the event loop is stuck. At most one object at a time has it.
    explicit SignalSource(const std::vector<int>& signalNumbers, BeforeEnd beforeEnd = nullptr);
    ~SignalSource() override;
    Q_DISABLE_COPY_MOVE(SignalSource)

    /// Sends the program one of the signals, and lets it do for once what it did before.
    void raiseAsBefore(int signalNumber);

signals:
    void arrived(int signalNumber);

private:
    void watch(int signalNumber, void (*handler)(int));
    void readPipe();

    std::array<int, 2> m_pipe; ///< its end to read and its end to write
    QSocketNotifier m_notifier;
    std::map<int, struct sigaction> m_before; ///< what the signals did
};

#pragma once

#include <QObject>
#include <QSocketNotifier>

/// Brings what the terminal and its shell tell into the event loop. At most one object at a time,
/// to be made before threads are started: those must leave the signals to it.
class TerminalSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminalSignals(QObject* parent = nullptr);
    ~TerminalSignals() override;

    /// Stops the program, as suspended() asks for. Comes back when it goes on, or at once when
    /// nobody could let it go on.
    static void stopProgram();

signals:
    /// The user wants the program to stop for a while (Ctrl-Z). It goes on until stopProgram().
    void suspended();
    /// The program was stopped, perhaps without being asked, and goes on.
    void resumed();
    /// The terminal has a new size.
    void resized();

private:
    void read();

    QSocketNotifier m_notifier;
};

#pragma once

#include "run/order_input.h"
#include "run/runner.h"

#include <QObject>
#include <QTimer>

struct Request;

/// All orders of an input, from the first line to the end of the last order: "driver-host run".
///
/// Everything runs on the event loop; ended() comes exactly once.
class RunSession : public QObject
{
    Q_OBJECT

public:
    /// \a file is the open input. \a module and \a console must outlive the session.
    RunSession(int file, const Module& module, const Request& request, Console& console,
               QObject* parent = nullptr);

    void start();
    /// Stops everything, as the user asked by this signal, and ends with 128 + \a signal.
    void interrupt(int signal);
    /// Nobody reads the events any more: no more orders are read, those that end by themselves are
    /// still carried out.
    void outputClosed();

signals:
    void ended(int exitCode);

private:
    void takeLine(const InputLine& line);
    void endInput(const QString& error);
    void showProgress();
    void end();

    Console& m_console;
    Runner m_runner;
    OrderInput m_input;
    QTimer m_progress;
    int m_signal = 0;
    bool m_outputClosed = false;
    bool m_inputFailed = false;
};

#pragma once

#include <runtime/engine/worker_action.h>

#include <plugin_management/d_order.h>

/// One order from its start to its end: counts what is still to come of it, and decides when it has
/// ended and how. It calls nobody.
///
/// An order ends once its command has finished, none of its instructions is pending, and no call
/// into the command is on the stack.
class OrderLife
{
public:
    DOrder data;

    void instructionTaken() { ++m_pending; }
    void instructionEnded() { --m_pending; }
    void instructionRefused(const QString& why);
    int pending() const { return m_pending; }

    void callBegins() { ++m_calls; }
    void callReturned() { --m_calls; }
    bool isBeingCalled() const { return m_calls > 0; }

    /// An instruction's outcome has come, before the command gets it.
    void noteFailure(const OrderFailure& failure);
    void commandFinished(bool ok);
    bool isFinished() const { return m_isFinished; }
    /// False when it was asked to stop before.
    bool requestStop();

    // How the command is to be finished when it has not done so itself, which is what these tell by
    // true: then nothing else would ever end the order. \a ok says how.
    bool mustFinishAfterRun(bool accepted, bool& ok);
    bool mustFinishAfterReply(Outcome outcome, bool accepted, bool& ok);

    /// Decides how the order has ended. False when it has not, or was decided before.
    bool decideEnd();
    /// It ends here and now, as stopped.
    void cutShort(const QString& why);

private:
    int m_pending = 0;
    int m_calls = 0;
    bool m_isFinished = false;
    bool m_finishedOk = false;
    bool m_isStopping = false;
};

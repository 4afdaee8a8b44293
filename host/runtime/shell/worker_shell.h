#pragma once

#include <runtime/engine/worker_engine.h>
#include <runtime/link/link.h>
#include <runtime/link/shared_line.h>
#include <runtime/loop/before_sleep.h>
#include <runtime/loop/deadline.h>
#include <runtime/loop/spin.h>
#include <runtime/loop/step.h>
#include <runtime/shell/lingering.h>

#include <plugin_management/d_abstract_worker.h>

#include <vector>

/// Stands between a worker's engine and the world: performs what the engine decides, and brings it
/// what happens.
///
/// Foreign code (the worker's functions and reply hook, slots of its signals, orders, the tracer)
/// is called from perform() only, and each call may do anything: start and stop instructions, run
/// an event loop, destroy the worker. What it starts is done once it has returned; whether the
/// worker is still there is looked at in one place, after the call. The shell itself lives on until
/// perform() has returned.
class WorkerShell final : public Lingering
{
public:
    using OutcomeHandler =
        fastdelegate::Delegate<void, quint64, Outcome, const ParameterMap&, const OrderFailure&>;

    explicit WorkerShell(DAbstractWorker& worker);

    /// The worker goes: nothing of it is called any more.
    void leave();
    /// Who hears of outcomes besides the receivers of the worker's signals, and after them: the
    /// orders of its plug-in object, for whom a signal's way is too long. Empty: nobody.
    void setOutcomeHandler(const OutcomeHandler& handler) { m_outcomeHandler = handler; }

    bool start(quint64 id, const QString& function, const ParameterMap& parameters, int timeoutMs,
               QString& refusal);
    bool stop(quint64 id);

    /// False, with the reason, when they cannot be taken now.
    bool setLinkOptions(const LinkOptions& options, QString& refusal);

    bool connectLink(const ParameterMap& parameters, ParameterMap& result);
    bool disconnectLink(ParameterMap& result);

    void declareFunction(const QString& name, const WorkerFunction& function);
    void setTracer(const DAbstractWorker::FrameTracer& tracer) { m_tracer = tracer; }
    WorkerEngine& engine() { return m_engine; }

private:
    enum class Extent : quint8 { All, Step };

    struct Trace
    {
        bool outgoing;
        QByteArray bytes;
    };

    /// What an order must hear of yet.
    struct Untold
    {
        quint64 id;
        Outcome outcome;
        const WorkerNews& news;
    };

    // What the world does.
    void handleOpened();
    void handleFailed(const QString& why);
    void handleReadable();
    void handleEnded(const QString& why);
    void handleReplaced(const QString& why);
    void handleTurn(const LinkLife& life);
    void handleDue();
    void handleSleep();
    void handleWritten(const char* data, int size);
    void handleWrittenSpinning(const char* data, int size);
    void handleDrained(int size);
    void handleDropped(int size, int replies);

    LinkSocket::Watch watch();
    LinkSocket* socketToUse();
    bool awaitsReply() { return !m_engine.awaitsNothing(); }
    void setUpLink(const LinkOptions& options, std::unique_ptr<TlsSettings> tls,
                   const SerialSettings* serial);
    void openLink(bool anew);
    void closeLink(bool isSpoiled);
    void askTurn();
    void noteEnd();

    void performFromOutside();
    int loopLevel() const;
    void perform(Extent extent = Extent::All);
    void handleStep() { perform(Extent::Step); }
    bool endsStep(Extent extent);
    void execute(const WorkerAction& action);
    template <typename Call>
    bool callForeign(const Call& call);
    void callFunction(quint64 id);
    void judgeReply();
    void tellOutcome(const WorkerAction& action);
    void tellUntold();
    void log(const WorkerAction& action);
    void trace(bool outgoing, const char* data, int size);
    bool showTraces();

    DAbstractWorker* m_worker; ///< null once it has gone
    qint64 m_nowUs = 0; ///< of the last look at the clock, which is good for what it brought about
    int m_depth = 0; ///< how many perform() are on the stack
    int m_loopLevel = 0; ///< the event loops around the innermost of them
    std::vector<WorkerFunction> m_functions; ///< by number
    std::vector<Trace> m_traces; ///< to be shown once no foreign code runs
    DAbstractWorker::FrameTracer m_tracer;
    OutcomeHandler m_outcomeHandler;
    const Untold* m_untold = nullptr;
    Deadline m_due;
    BeforeSleep m_leftInCall; ///< what is left to perform until a call returns
    Step m_step; ///< what is left to perform of a reply, while others perform theirs
    std::unique_ptr<Spin> m_spin; ///< null: no reply is looked for before the loop sleeps
    std::unique_ptr<LinePlace> m_place; ///< on a link shared with others, in the other's place
    Link m_link;
    WorkerEngine m_engine;
};

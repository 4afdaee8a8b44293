#pragma once

#include <runtime/engine/exchange.h>
#include <runtime/engine/instruction_queue.h>
#include <runtime/engine/keep_alive.h>
#include <runtime/engine/line_turn.h>
#include <runtime/engine/link_keeper.h>
#include <runtime/engine/round_trips.h>
#include <runtime/engine/worker_action.h>

#include <plugin_management/link_options.h>
#include <plugin_management/worker_statistics.h>

/// What a worker decides: which instruction runs, which reply answers it, when it has failed, and
/// when its link is opened, replaced, tried again or kept alive.
///
/// It touches nothing of the world. What happens comes in by its functions, with the time in
/// microseconds of a clock that never goes back; what is to be done comes out of next(), until
/// nothing is left; wakeAtUs() says when to call timePassed(). It never calls anybody.
///
/// An instruction is either waiting in the queue, current (it is called, its request is out, or its
/// reply is judged), or over. A connect is none of these: once its attempt has begun it belongs to
/// the link until it is stopped. Every way out of "current" goes through settle(), so an
/// instruction ends once.
class WorkerEngine
{
public:
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    explicit WorkerEngine(unsigned seed) : m_link(seed), m_turn(~seed) { }

    // Set-up.
    /// Makes \a name callable and returns its number, from 0; a name that is there keeps its own.
    int declareFunction(const QString& name);
    void setKeepAlive(const QString& function, const ParameterMap& parameters, int intervalMs);
    void setFraming(const ReplyFraming& framing) { m_exchange.setFraming(framing); }
    /// What lies below the worker. Not while a connect runs or the link is open.
    void setLinkOptions(const LinkOptions& options);

    // What users ask for.
    /// Takes an instruction; false, with the reason, when it cannot be taken.
    bool add(quint64 id, const QString& function, const ParameterMap& parameters, int limitMs,
             qint64 nowUs, QString& refusal);
    bool stop(quint64 id, qint64 nowUs);

    // What the function of the current instruction does while it runs.
    /// It asks for a link. False, with the failure as \a result, when its parameters are wrong.
    bool beginConnect(const ParameterMap& parameters, ParameterMap& result, qint64 nowUs);
    void disconnect(ParameterMap& result);
    void expectReply() { m_exchange.expectReply(); }
    void requestLeft(const char* data, int size) { m_exchange.requestLeft(data, size); }
    /// It has taken bytes that waited on the link.
    void drained(int size);

    // What comes of what the shell was asked to do.
    /// The instruction to call; null when it has been stopped meanwhile.
    WorkerInstructionPtr beginCall(qint64 nowUs);
    void functionReturned(bool succeeded, const ParameterMap& result, qint64 nowUs);
    QByteArray frame() const { return m_exchange.frame(); }
    void judged(ParameterMap judgement, qint64 nowUs);
    /// All that had arrived has been taken in; \a missing is what an attempt to connect waits for.
    void looked(qint64 nowUs, const QString& missing = {});

    // What the world does.
    void received(const char* data, int size, qint64 nowUs);
    /// Replies that are another's have come, and were dropped.
    void dropped(int size, int replies);
    void linkOpened(qint64 nowUs);
    void linkFailed(const QString& why, qint64 nowUs);
    void linkEnded(const QString& why, qint64 nowUs);
    /// Somebody else who uses the link had it closed, as what comes over it cannot be trusted.
    void linkReplaced(const QString& why, qint64 nowUs);
    /// The turn that was asked for has come, with what is known of the device.
    void turnCame(const LinkLife& life, qint64 nowUs);
    void timePassed(qint64 nowUs);

    /// Takes the next thing to do; false when there is nothing.
    bool next(WorkerAction& action, qint64 nowUs);
    /// What the outcome or log line just taken says.
    WorkerNews takeNews() { return m_actions.takeNews(); }
    /// When to call timePassed().
    qint64 wakeAtUs() const;

    /// A reply has come whole, and nothing else is to be done before it is judged.
    bool judgesNext() const { return m_actions.nextIs(WorkerAction::Kind::JudgeReply); }
    /// What is to be done next can wait for a moment: an outcome to be told, or an instruction to
    /// be chosen.
    bool canPause() const
    {
        return m_actions.empty() || m_actions.nextIs(WorkerAction::Kind::TellOutcome);
    }
    /// True while nothing that comes can be the reply to a request.
    bool awaitsNothing() const { return m_phase != Phase::InFlight && m_phase != Phase::Calling; }
    const ReplyFraming& framing() const { return m_exchange.framing(); }
    /// True while no connect runs and there is no link.
    bool isUnlinked() const { return m_connectId == 0 && m_link.isClosed(); }
    quint64 currentId() const { return m_current ? m_current->id : 0; }
    ParameterMap currentParameters() const;
    /// What the next one on a link that others use as well should know.
    LinkLife linkLife() const;
    const LinkKeeper::Endpoint& endpoint() const { return m_link.endpoint(); }
    WorkerStatistics statistics() const;

private:
    enum class Phase : quint8 { Idle, Chosen, Calling, InFlight, Judging };
    /// How a link was lost: it ended, what comes over it can no longer be trusted, or the device
    /// did not answer the keep-alive.
    enum class Loss : quint8 { Ended, Spoiled, ByKeepAlive };
    using Kind = WorkerAction::Kind;
    using Code = OrderFailure::Code;

    int numberOf(const QString& function) const;

    void choose(qint64 nowUs);
    void makeCurrent(WorkerInstructionPtr instruction, qint64 nowUs);
    void runKeepAlive(qint64 nowUs);
    bool isKeepAliveDue(qint64 nowUs) const;
    bool mayRunNext(qint64 nowUs);
    void askTurn();
    bool lacksTurn() const;
    void giveTurnBack();
    void noteUnitSilent(qint64 nowUs);
    void noteUnitAnswers();
    QString unitText() const;
    bool neverLeft(qint64 nowUs);
    void frameCame(qint64 nowUs);
    void timedOut(qint64 nowUs);
    void unasked(int size, qint64 nowUs);

    WorkerInstructionPtr release();
    WorkerInstructionPtr takeCurrent();
    void settle(const WorkerInstructionPtr& instruction, const OrderFailure& failure,
                ParameterMap reply, qint64 nowUs);
    void failWaiting(const QString& why, qint64 nowUs);
    OrderFailure refused(const ParameterMap& result) const;

    void failAtOnce(const QString& text, qint64 nowUs);
    void openLink(bool anew);
    void closeLink(bool isSpoiled = false);
    QString connectRefusal(const ParameterMap& parameters) const;
    LinkKeeper::Endpoint endpointOf(const ParameterMap& parameters) const;
    void replaceLink(const QString& why, qint64 nowUs);
    void declareLost(const QString& why, qint64 nowUs, Loss loss = Loss::Ended);
    void tellState(bool open, const QString& why, bool byKeepAlive = false);
    void tellConnectDown(const QString& why, bool byKeepAlive = false);

    // What an instruction touches, together: of a thousand devices each line of memory that one
    // touches comes from far away.
    WorkerActions m_actions;
    WorkerInstructionPtr m_current;
    Phase m_phase = Phase::Idle;
    bool m_failedAtOnce = false; ///< nothing more is chosen before the next turn
    bool m_endedInCall = false; ///< the link has ended while foreign code was at work
    bool m_connectBegun = false; ///< the function being called has begun a connect
    Exchange m_exchange;
    InstructionQueue m_queue;
    int m_connect = -1; ///< the number of the function that does it
    int m_disconnect = -1;
    std::vector<QString> m_functions; ///< by number
    KeepAlive m_keepAlive;
    LinkKeeper m_link;
    LineTurn m_turn;
    WorkerStatistics m_statistics;
    RoundTrips m_roundTrips;

    // What it does not.
    QString m_endedWhy;
    bool m_tellsRepliesApart = false; ///< a late reply is never taken for the next one's
    QString m_serial; ///< the device in the place of host and port
    bool m_opensFirst = false; ///< the next link is a connect's own
    quint64 m_connectId = 0; ///< the running connect
};

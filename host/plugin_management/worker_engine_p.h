#pragma once

#include <plugin_management/connection_p.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/lazy_timer_p.h>
#include <plugin_management/life_guard_p.h>
#include <plugin_management/order_failure.h>
#include <plugin_management/reply_cutter_p.h>
#include <plugin_management/round_trips_p.h>
#include <plugin_management/worker_queue_p.h>

#include <QHash>

#include <array>

/// What a worker base does: takes orders, runs one at a time, pairs it with its reply or its
/// failure, and keeps the connection.
///
/// An order is either waiting in the queue, in flight (its request is out), or over. The connect
/// order is none of these: once its attempt has begun it belongs to the connection until it is
/// stopped. Every path out of "in flight" goes through settle(), so an order ends once.
class WorkerEngine : public QObject
{
    Q_OBJECT

public:
    enum class Outcome { Answer, Done, Error };
    using OutcomeHandler = fastdelegate::Delegate<void, quint64, Outcome, const ParameterMap&>;

    explicit WorkerEngine(DAbstractWorker& worker);

    /// Who hears of outcomes besides the receivers of the worker's signals, and after them: the
    /// orders of its plug-in object, for whom a signal's way is too long. Empty: nobody.
    void setOutcomeHandler(const OutcomeHandler& handler) { m_outcomeHandler = handler; }

    bool startOrder(quint64 id, const QString& function, const ParameterMap& parameters,
                    int timeoutMs, QString& refusal);
    bool stopOrder(quint64 id);

    bool beginConnect(quint64 id, const ParameterMap& parameters, ParameterMap& result);
    bool disconnectNow(ParameterMap& result);

    void declareFunction(const QString& name, const WorkerFunction& function);
    void setKeepAlive(const QString& name, const ParameterMap& parameters, int intervalMs);
    void setFraming(const ReplyFraming& framing);
    void setTracer(const DAbstractWorker::FrameTracer& tracer) { m_tracer = tracer; }

    quint64 currentId() const { return m_current ? m_current->id : 0; }
    ParameterMap currentParameters() const;
    void expectReply() { m_replyExpected = true; }
    WorkerStatistics statistics() const;

private:
    struct Function
    {
        WorkerFunction call;
        bool needsConnection = true;
        bool endsConnection = false;
    };
    struct KeepAlive
    {
        QString function;
        ParameterMap parameters;
        int intervalMs = 0;
    };
    class Hold;
    static constexpr int defaultLimitMs = 5000;

    bool fillOrder(WorkerOrder& order, const QString& function, QString& refusal);
    bool chooseFunction(const QString& name);

    void pump();
    bool nobodyWaitsForReply() const;
    void run(const WorkerOrderPtr& order);
    void afterCall(bool succeeded, const ParameterMap& result, qint64 calledUs);
    WorkerOrderPtr takeCurrent();
    void settle(const WorkerOrderPtr& order, bool succeeded, const ParameterMap& reply);
    void tell(Outcome outcome, quint64 id, const ParameterMap& reply);
    void failWaiting(const QString& why);
    void count(bool succeeded, const ParameterMap& reply);
    // "cold" keeps what leads to a failure out of the way of orders that go well.
    [[gnu::cold]] OrderFailure failure(OrderFailure::Code code, const QString& text) const;
    [[gnu::cold]] ParameterMap refusedByFunction(const ParameterMap& result) const;
    void handleTick();
    void armTick();

    void handleReadable();
    void handleUnsolicited(int size);
    void handleFrame();
    bool judge(const QByteArray& frame, ParameterMap& reply);
    void handleTimeout();
    void handleSilence();

    bool connectAllowed(const ParameterMap& parameters, QString& refusal) const;
    bool chooseKeepAlive(const ParameterMap& parameters, QString& refusal);
    void handleOpened(bool report);
    void handleOpenFailed(const QString& why);
    void handleLost(const QString& why);
    void reportState(bool connected, const QString& why = QString());
    void watchBytes(bool outgoing, const char* data, int size);
    QString endpointText() const;

    // What an order does not touch: with many devices each line of memory counts.
    QHash<QString, Function> m_functions;
    LazyTimer m_silence;
    LazyTimer m_tick;
    KeepAlive m_defaultKeepAlive;
    KeepAlive m_keepAlive;
    quint64 m_connectId = 0; ///< the running connect order
    bool m_connectBegun = false; ///< the function being run has begun a connect
    bool m_opensFirst = false; ///< the next connection is a connect order's own

    RoundTrips m_roundTrips;
    WorkerStatistics m_statistics;
    Connection m_connection;

    DAbstractWorker& m_worker;
    OutcomeHandler m_outcomeHandler;
    DAbstractWorker::FrameTracer m_tracer;
    WorkerQueue m_queue;
    QString m_lastFunctionName; ///< of an order: mostly the next one asks for the same
    Function m_lastFunction;
    WorkerOrderPtr m_current; ///< being run or in flight
    bool m_replyExpected = false;
    bool m_lastFailed = false;
    bool m_pumping = false;
    bool m_reading = false;
    int m_requestHeadSize = 0; ///< 0: nothing was written for the current order
    std::array<char, ReplyFraming::requestHeadSize> m_requestHead{};
    qint64 m_lastRequestUs = 0;
    const ReplyFraming* m_framing;
    ReplyCutter m_cutter;
    LazyTimer m_deadline;
    Lifetime m_lifetime;
};

/// Keeps orders that slots start meanwhile in the queue, and runs them when it goes.
class WorkerEngine::Hold
{
public:
    explicit Hold(WorkerEngine* engine)
        : m_engine(*engine), m_guard(engine->m_lifetime), m_outermost(!engine->m_pumping)
    {
        engine->m_pumping = true;
    }
    ~Hold()
    {
        if (m_guard && m_outermost) {
            m_engine.m_pumping = false;
            m_engine.pump();
        }
    }
    Q_DISABLE_COPY(Hold)

private:
    WorkerEngine& m_engine;
    LifeGuard m_guard; // a slot may destroy the worker
    bool m_outermost;
};

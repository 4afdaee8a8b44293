#pragma once

#include <plugin_management/backoff_p.h>
#include <plugin_management/lazy_timer_p.h>
#include <plugin_management/worker_socket_p.h>

#include <QPointer>
#include <QTcpSocket>

/// The connection of one worker to its device: at most one socket at a time, opened, watched, and
/// re-opened for ever once it has been open and is wanted.
///
/// It tells what happened by its signals and decides when to try again; what that means for orders
/// is the engine's.
class Connection : public QObject
{
    Q_OBJECT

public:
    struct Endpoint
    {
        QString host;
        quint16 port = 0;
        int limitMs = 0; ///< for one attempt to connect
    };

    using Handler = fastdelegate::Delegate<void>;

    /// Calls \a readable when there is something to read from the socket, or its end.
    explicit Connection(const Handler& readable);
    ~Connection() override;

    /// Opens a connection; one that is there is closed first. Ends in opened() or openFailed().
    void open(const Endpoint& endpoint);
    /// Closes for good.
    void close();
    /// Nobody wants the connection re-opened any more; an open one stays open until it ends.
    void release();
    /// Replaces the socket because what comes over it can no longer be trusted. At once and without
    /// a report when the device has answered on it; a device that never does is taken as lost.
    void reopen(const QString& why);
    /// Takes the connection as lost.
    void loseIt(const QString& why);
    /// A reply came: the device lives.
    void noteReply();
    /// Looks whether the socket has ended without a signal, as an unbuffered one does on reading or
    /// writing.
    void checkSocket();

    bool isOpen() const { return m_state == State::Open; }
    /// True while the outcome of an attempt is worth waiting for: the first one, and the first one
    /// after a loss.
    bool isAwaited() const;
    /// True while the connection is down and nobody should wait for it.
    bool isDown() const { return isRetrying() && !isAwaited(); }
    /// Why it is down, for a failure text.
    QString trouble() const { return m_trouble; }
    const Endpoint& endpoint() const { return m_endpoint; }
    WorkerSocket* socket() const { return m_socket; }

signals:
    /// Requests can be written. \a reported: the owner had been told that it was lost, or has not
    /// heard of it yet.
    void opened(bool reported);
    /// The first attempt has failed; there will be no other.
    void openFailed(const QString& why);
    /// The connection that opened() told of is gone; it will be re-opened if it is wanted.
    void lost(const QString& why);
    /// An attempt to re-open has failed.
    void retryFailed(const QString& why);

private:
    enum class State { Closed, Opening, Open, Waiting, Reopening };

    bool isRetrying() const { return m_state == State::Waiting || m_state == State::Reopening; }
    void startAttempt(State state);
    template <typename Action>
    void handle(Action action);
    void handleReadable(quint32 events);
    void handleAttemptLimit();
    void retry();
    int attemptLimitMs() const;
    void attemptSucceeded();
    void attemptFailed(const QString& why);
    void retryLater();
    void dropSocket();
    QString endpointText() const;

    LazyTimer m_limit;
    LazyTimer m_retry;
    Endpoint m_endpoint;
    QTcpSocket* m_attempt = nullptr; ///< looks the host up and connects
    QString m_trouble;
    // What an order touches, together.
    State m_state = State::Closed;
    int m_retries = 0; ///< attempts to re-open since the device last answered
    int m_inSocketSignal = 0;
    bool m_wanted = false;
    bool m_reported = false; ///< the owner believes that it is connected
    bool m_answered = false; ///< the device has answered on this socket
    WorkerSocket* m_socket = nullptr; ///< what the attempt has connected
    Handler m_readable;
    Backoff m_backoff;
};

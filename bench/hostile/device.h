#pragma once

#include <misbehaviour.h>
#include <reply_spoiler.h>

#include <QHash>
#include <QVariantList>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

class QTcpSocket;

/// A device whose every value tells its table and its address, and that spoils replies in every way
/// there is. What it has answered can be asked for from any thread.
///
/// Each table has the registers up to 0xEFFF; holding registers can be written from 0xC000 on.
class HostileDevice
{
public:
    static constexpr int writableFrom = 0xC000;
    static constexpr int missingFrom = 0xF000;

    /// A request that it carried out, and its answer to that.
    struct Answer
    {
        quint64 number = 0; ///< from 1
        int connection = 0; ///< from 1
        bool clean = false; ///< nothing was spoiled on this connection before or now
        qint64 atMs = 0;
        quint8 function = 0; ///< with bit 7 for an exception
        quint16 start = 0;
        quint16 quantity = 0;
        QByteArray data; ///< of values, read or written
        const MisbehaviourKind* kind = nullptr; ///< how the reply was spoiled
        quint8 spoiledFunction = 0; ///< what the spoiled reply says it is
        QByteArray spoiledData; ///< and what it holds
    };

    /// To be made on the thread that it then lives on.
    explicit HostileDevice(const Misbehaviour& misbehaviour);
    bool listen() { return m_spoiler.listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return m_spoiler.port(); }

    // From any thread.

    /// From now on it spoils nothing.
    void behave() { m_behaves = true; }
    int openConnections() const { return m_open; }
    /// The number of the last answer.
    quint64 answered() const;
    /// Of the last answers the newest that fits.
    std::optional<Answer> newest(const std::function<bool(const Answer&)>& fits) const;
    /// It was given on the last connection, or on the one before: the link may just have been
    /// opened anew.
    bool isRecent(const Answer& answer) const { return answer.connection >= m_connections - 1; }

    /// What the registers that nobody can write hold, as it travels.
    static QByteArray dataAt(quint8 function, quint16 start, quint16 quantity);
    /// The identification that function 17 answers with.
    static QByteArray identification();

private:
    struct Client
    {
        int connection = 0;
        bool clean = true;
    };

    void serve(QTcpSocket* client);
    void takeRequests(QTcpSocket* client);
    void answer(QTcpSocket* client, const QByteArray& request);
    QByteArray carryOut(const QByteArray& request, Answer& answer);
    QByteArray read(Answer& answer) const;
    QByteArray write(const QByteArray& request, Answer& answer);
    static void noteSpoiled(Answer& answer, const QByteArray& reply);
    void writeDown(const Answer& answer);

    QHash<QTcpSocket*, Client> m_clients;
    QHash<int, QByteArray> m_written; ///< of holding registers, by address
    std::atomic<bool> m_behaves{false};
    std::atomic<int> m_open{0};
    std::atomic<int> m_connections{0};
    mutable std::mutex m_mutex;
    quint64 m_answered = 0; ///< these are shared
    std::deque<Answer> m_answers; ///< the last ones
    ReplySpoiler m_spoiler; // the first to go: it ends its clients
};

qint64 steadyMs();

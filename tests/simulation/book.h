#pragma once

#include "device.h"
#include "line.h"

#include <plugin_management/d_orders.h>
#include <plugin_management/link_options.h>
#include <plugin_management/types.h>
#include <plugin_management/worker_statistics.h>

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>

/// What a user asks of an object.
struct Asked
{
    QString command;
    quint8 function = 0; ///< 0 for what sends no request of its own
    quint16 start = 0; ///< no two orders that are open have the same
    quint16 quantity = 0;
    qint64 intervalUs = 0; ///< of a listen
    ParameterMap parameters;

    bool repeats() const { return intervalUs > 0; }
    bool writes() const { return function > 4 && function != 17; }
};

/// What must hold of one plug-in object and its link, whatever happens. It is told of everything
/// that can be seen from outside, and breaks the world's rule at the first thing that is wrong.
class Book final
{
public:
    Book(int object, Line& line, const LinkOptions& options, Device& device);
    Q_DISABLE_COPY(Book)

    // What the user does.
    /// An order is about to be started; gives back what begun() wants.
    int starting(const Asked& asked);
    void begun(int number, quint64 id);
    void stopping(quint64 id);
    void objectMade();
    /// It will be destroyed now, which stops its orders.
    void objectLeaving();
    void objectGone();

    // What the object tells.
    void result(quint64 id, const QString& name, const QVariant& value);
    void trouble(quint64 id, const OrderFailure& failure);
    void ended(const DOrder& order);
    void running(quint64 instruction);
    void instructionDone(quint64 id) const;
    void status(bool isConnected);

    // What the process does with its links.
    void attempts(quint64 link);
    void opens(quint64 link);
    void sends(quint64 link, const QByteArray& wire);
    /// Another object does, on a link that both use.
    void otherSends(quint64 link, const QByteArray& bytes);
    void receives(quint64 link, const QByteArray& arrived);
    void loses(quint64 link);
    void closes(quint64 link, int unread);
    void looksUp();

    /// What may be wrong without anything happening.
    void look();
    /// All has been well for long: what must be there then, and what the worker counted of all that
    /// it has seen.
    void expectCalm(int openOrders, const WorkerStatistics& counted);

    bool wantsLink() const;
    bool isThere() const { return m_isThere; }
    bool isUnitOf(const QByteArray& wire) const;
    quint64 connectOrder() const;
    bool isAskedFor(quint16 start) const { return m_numberOfStart.count(start) > 0; }
    /// An open order that is drawn, 0 when there is none.
    quint64 anyOrder(Random& random) const;
    std::vector<quint64> openOrders() const;
    quint64 answers() const { return m_answers; }
    quint64 staleCopies() const { return m_staleCopies; }
    quint64 endedOrders() const { return m_endedOrders; }

private:
    struct Open
    {
        Asked asked;
        quint64 id = 0; ///< 0 until start() has returned it
        quint64 request = 0; ///< the last one that left for it
        std::deque<quint64> early; ///< those before, if they left before start() had returned
        quint64 instruction = 0; ///< for which it left
        quint64 link = 0; ///< on which it left
        qint64 leftUs = 0;
        quint64 leftAt = 0; ///< the moment
        qint64 sinceUs = 0;
        qint64 sinceAwakeUs = 0;
        qint64 toldUs = 0; ///< when something was told of it last
        quint64 idsBefore = 0; ///< the largest one that was known when it was started
        quint64 turn = 0; ///< of the worker, when it was started
        bool isStopped = false;
        bool isConfirmed = false;
        int results = 0;
        qint64 outcomes = 0;

        bool waitsToAsk() const
        {
            return asked.function != 0 && !asked.repeats() && request == 0 && results == 0
                && !isStopped;
        }
    };

    /// What the worker must have counted since the object was made.
    struct Counts
    {
        quint64 done = 0;
        std::map<OrderFailure::Code, quint64> failed;
        quint64 mostUntold = 0; ///< outcomes, of orders that were stopped
        qint64 leastSkipped = 0; ///< repetitions
        qint64 mostSkipped = 0;
        qint64 repeating = 0; ///< orders; each may be off by one, as it is started at any moment
    };
    using OpenOrders = std::map<int, Open>;

    /// A request that has left, and nothing has come since.
    struct Flight
    {
        quint64 link = 0;
        int order = 0; ///< 0: the keep-alive
        qint64 sinceUs = 0; ///< while the process was awake
        qint64 leftUs = 0;
    };

    void fail(const QString& rule) const;
    void failIf(bool isBroken, const char* rule) const;
    void note(const char* what, qint64 number = 0, const QByteArray& bytes = {}) const;
    /// A clock that stands while the process does, for what must not take longer.
    qint64 awakeUs() const;
    Open* find(quint64 id);
    int numberOf(const QByteArray& request) const;
    void checkRead(Open& open, const QVariant& value);
    bool isOwn(const Open& open, quint64 request, const QVariant& value) const;
    void checkWrite(Open& open, const QVariant& value);
    OpenOrders::const_iterator nextToIdentify() const;
    void handOver(const Open& failed);
    void noteAnswer(int number);
    void noteFailure(const Open& open, int number, const OrderFailure& failure);
    void checkTimeout(const Open& open) const;
    void noteTaint(const Open& open, const OrderFailure& failure);
    void checkRefusal(const Open& open) const;
    void checkEnd(const Open& open, const DOrder& order) const;
    void checkOneIsOut(quint64 link) const;
    void checkHeader(const QByteArray& request);
    void checkTurn(const Open& open) const;
    void checkNobodyWaits() const;
    void checkNothingIsHeldUp() const;
    void checkLostIsClosed() const;
    void noteReply(const QByteArray& bytes);
    void checkReplyIsTold() const;
    void tick(Open& open);
    static void addSkipped(Counts& counts, const Open& open, bool isOver);
    void checkCounts(const WorkerStatistics& counted) const;
    void checkDelay() const;
    void linkGone();
    QByteArray withoutEcho(const QByteArray& bytes);

    int m_object;
    Line& m_line;
    const LinkOptions& m_options;
    Device& m_device;
    bool m_isThere = false;
    bool m_isLeaving = false;
    int m_numbers = 0;
    quint64 m_lastId = 0;
    quint64 m_turn = 0;
    OpenOrders m_open;
    std::map<quint64, int> m_numberOfId;
    std::map<quint16, int> m_numberOfStart;
    std::set<quint64> m_stopped; ///< instructions
    quint64 m_runs = 0; ///< an instruction
    bool m_isToAsk = false; ///< it has not yet
    std::optional<Flight> m_flight;
    quint64 m_answers = 0;
    quint64 m_staleCopies = 0;
    quint64 m_endedOrders = 0;
    Counts m_counts;

    // The link.
    quint64 m_link = 0; ///< being tried or open
    bool m_isLine; ///< a serial one, on which a request may wait for silence before it leaves
    int m_echo = 0; ///< bytes that come back first
    qint64 m_silentUs = 0; ///< from then on it has been silent for long enough
    QByteArray m_lastTransaction; ///< its id
    int m_lastAsked = 0; ///< the order of the last request
    bool m_isAnswered = false; ///< that it has been told so
    qint64 m_answeredUs = 0; ///< and when
    QByteArray m_reply; ///< what came since the last request
    std::optional<qint64> m_wholeUs; ///< since when that has been a frame
    qint64 m_receivedBytes = 0; ///< on this link
    int m_requests = 0; ///< on this link
    /// The link that was closed last, and what it received, if one request had left on it.
    std::pair<quint64, qint64> m_closed;
    std::pair<quint64, qint64> m_lost; ///< a link whose end was read, and when: until it is closed
    quint64 m_leftUnread = 0; ///< the link that was closed last with bytes on it
    quint64 m_tainted = 0; ///< nothing more may leave on it
    bool m_isOpen = false;
    std::optional<qint64> m_awaitedUs; ///< since when the first attempt is under way
    bool m_isTold = false; ///< connected, as told by the object
    qint64 m_openedUs = 0;
    qint64 m_trafficUs = 0;
    bool m_hasReceived = false; ///< on this link
    bool m_hasAnswered = false; ///< on this link, for sure
    int m_vain = 0; ///< attempts in a row that no reply followed, at least
    int m_mostVain = 0; ///< and at most
    bool m_isVainKnown = false;
    bool m_beginsAtOnce = false; ///< for a connect
    std::optional<qint64> m_goneUs; ///< since when there has been none, and when it was lost
    std::optional<qint64> m_goneAwakeUs;
};

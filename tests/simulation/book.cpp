#include "book.h"

#include "rtu.h"
#include "world.h"

#include <QtEndian>

#include <hostile/frames.h>

#include <algorithm>
#include <array>
#include <utility>

namespace {

using namespace Frames;

constexpr qint64 ms = 1000;
constexpr qint64 turnUs = 30 * ms; // what a turn of the loop may take, with some more
constexpr qint64 limitUs = 2000 * ms; // of the module's orders
constexpr qint64 keepAliveUs = 5000 * ms;
constexpr qint64 firstDelayUs = 250 * ms;
constexpr qint64 longestDelayUs = 15000 * ms;
constexpr qint64 longestLookUpUs = 8100 * ms;
constexpr qint64 restUs = 100 * ms; // of a serial line that was opened
constexpr qint64 silenceUs = 2 * ms; // of three and a half characters at 19200 baud
// Of an order that repeats, while slots run loops and what was posted waits for them to return.
constexpr quint64 untoldRepetitions = 4;
constexpr int fewBytes = 2048; // less than any flood brings
constexpr quint8 identify = 17;

int replySize(const Device::Said& said)
{
    return said.function == identify ? said.data.size()
        : said.function <= 2         ? (said.quantity + 7) / 8
                                     : 2 * said.quantity;
}

bool holds(const QVariant& value, const Device::Said& said)
{
    if (said.function == identify) {
        return value.toMap().value(QStringLiteral("info")).toByteArray() == said.data;
    }
    return value.toList() == handedOut(said.function, said.quantity, said.data);
}

// A reply of this function with these data gives this value to whom it is taken to answer.
bool couldBe(const Asked& asked, quint8 function, const QByteArray& data, const QVariant& value)
{
    Device::Said taken;
    taken.function = function;
    taken.quantity = asked.quantity;
    taken.data = data;
    return function == asked.function && replySize(taken) == data.size() && holds(value, taken);
}

} // namespace

Book::Book(int object, Line& line, const LinkOptions& options, Device& device)
    : m_object(object), m_line(line), m_options(options), m_device(device),
      m_isLine(!options.serial.isEmpty())
{
    line.add(*this);
}

void Book::fail(const QString& rule) const { World::current()->fail(m_object, rule); }

void Book::failIf(bool isBroken, const char* rule) const
{
    if (isBroken) {
        fail(QString::fromLatin1(rule));
    }
}

void Book::note(const char* what, qint64 number, const QByteArray& bytes) const
{
    World::current()->note(m_object, what, number, bytes);
}

qint64 Book::awakeUs() const { return World::current()->nowUs() - World::current()->stoppedUs(); }

Book::Open* Book::find(quint64 id)
{
    failIf(!m_isThere, "something was heard of an object that had gone");
    const auto it = m_numberOfId.find(id);
    return it != m_numberOfId.end() ? &m_open.at(it->second) : nullptr;
}

// --- what the user does ---

int Book::starting(const Asked& asked)
{
    Open open;
    open.asked = asked;
    open.turn = m_turn;
    open.sinceUs = open.toldUs = World::current()->nowUs();
    open.sinceAwakeUs = awakeUs();
    open.idsBefore = m_lastId;
    m_open[++m_numbers] = open;
    if (asked.command == QLatin1String("connect")) {
        m_beginsAtOnce = true;
        m_goneAwakeUs = awakeUs();
    }
    if (asked.function != 0 && asked.function != identify) {
        m_numberOfStart[asked.start] = m_numbers;
        m_device.forget(asked.start);
    }
    note("start", m_numbers, asked.command.toLatin1());
    return m_numbers;
}

void Book::begun(int number, quint64 id)
{
    failIf(id == 0, "a good order was refused");
    const auto it = m_open.find(number);
    if (it == m_open.end()) {
        return; // its object has gone within start()
    }
    failIf(id != 0 && id <= it->second.idsBefore, "an order's id was given before");
    m_lastId = std::max(m_lastId, id);
    it->second.id = id;
    m_numberOfId[id] = number;
}

void Book::stopping(quint64 id)
{
    if (Open* open = find(id)) {
        open->isStopped = true;
        m_stopped.insert(open->instruction);
        note("stop", m_numberOfId.at(id));
    }
}

void Book::objectMade()
{
    m_isThere = true;
    m_isLeaving = false;
    m_lastTransaction.clear();
    m_counts = {};
}

void Book::objectLeaving()
{
    m_isLeaving = true;
    for (auto& [number, open] : m_open) {
        open.isStopped = true;
    }
}

void Book::objectGone()
{
    const bool allEnded = std::all_of(m_open.begin(), m_open.end(),
                                      [](const auto& one) { return one.second.id == 0; });
    failIf(!allEnded, "an object went without an end of its orders");
    m_isThere = false;
    failIf(!m_line.isUsed() && m_line.openCount() > 0, "an object went and left its link");
    m_open.clear();
    m_numberOfId.clear();
    m_numberOfStart.clear();
    m_flight.reset();
    m_goneUs.reset();
    m_isTold = false;
}

quint64 Book::connectOrder() const
{
    for (const auto& [number, open] : m_open) {
        if (open.asked.command == QLatin1String("connect") && !open.isStopped) {
            return open.id;
        }
    }
    return 0;
}

quint64 Book::anyOrder(Random& random) const
{
    if (m_numberOfId.empty()) {
        return 0;
    }
    auto it = m_numberOfId.begin();
    std::advance(it, random.below(static_cast<int>(m_numberOfId.size())));
    return it->first;
}

std::vector<quint64> Book::openOrders() const
{
    std::vector<quint64> ids;
    for (const auto& [id, number] : m_numberOfId) {
        ids.push_back(id);
    }
    return ids;
}

// --- what the object tells ---

void Book::result(quint64 id, const QString& name, const QVariant& value)
{
    Open* open = find(id);
    if (open == nullptr) {
        fail(QStringLiteral("a result (%1) of an order that is not open").arg(name));
        return;
    }
    if (open->asked.function == 0) {
        note("tells", m_numberOfId.at(id), name.toLatin1());
        return;
    }
    ++open->results;
    ++m_answers;
    ++m_counts.done;
    note("value", m_numberOfId.at(id));
    if (open->request == 0) {
        fail(QStringLiteral("a value of an order that has asked nothing"));
    } else if (open->asked.writes()) {
        checkWrite(*open, value);
    } else {
        checkRead(*open, value);
    }
    tick(*open);
    noteAnswer(m_numberOfId.at(id));
    if (open->link == m_link) { // else it is told late
        m_hasAnswered = true;
        m_vain = m_mostVain = 0;
        m_isVainKnown = true;
    }
}

// A copy of another reply that came after the request had left, on its link, and of its very shape
// is what nobody can tell from its own. It is the one hole.
void Book::checkRead(Open& open, const QVariant& value)
{
    while (!open.early.empty()) { // told only now, in their order
        const quint64 request = open.early.front();
        open.early.pop_front();
        if (isOwn(open, request, value)) {
            return;
        }
    }
    if (isOwn(open, open.request, value)) {
        open.request = 0; // and no second time
        return;
    }
    const auto isStale = [&](const Device::Said& said) {
        return said.arrived > open.leftAt
            && (couldBe(open.asked, said.function, said.data, value)
                || (said.request != open.request
                    && couldBe(open.asked, said.sentFunction, said.sentData, value)));
    };
    failIf(m_options.transactionIds || !m_device.hasSaid(isStale),
           "a value that was not said to this request");
    ++m_staleCopies;
    open.request = 0;
}

bool Book::isOwn(const Open& open, quint64 request, const QVariant& value) const
{
    const Device::Said* own = m_device.said(request);
    const bool isIt = own != nullptr && own->function == open.asked.function && holds(value, *own);
    failIf(isIt && own->isNeverGood, "a spoiled reply was taken for good");
    return isIt;
}

void Book::checkWrite(Open& open, const QVariant& value)
{
    open.isConfirmed = value.toList() == QVariantList{1};
    if (open.isConfirmed && m_device.carriedOut(open.asked.start) != 1) {
        fail(QStringLiteral("a write was confirmed and had been carried out %1 times")
                 .arg(m_device.carriedOut(open.asked.start)));
    }
}

void Book::trouble(quint64 id, const OrderFailure& failure)
{
    Open* open = find(id);
    if (open == nullptr) {
        fail(QStringLiteral("trouble of an order that is not open"));
        return;
    }
    note("trouble", static_cast<int>(failure.code));
    if (open->asked.function != 0) {
        ++m_counts.failed[failure.code];
    }
    noteTaint(*open, failure);
    noteFailure(*open, m_numberOfId.at(id), failure);
    if (open->asked.function != 0) {
        tick(*open);
        failIf(!open->asked.repeats(), "trouble of an order that runs once");
    }
}

void Book::tick(Open& open)
{
    ++open.outcomes;
    const qint64 nowUs = open.toldUs = World::current()->nowUs();
    // It may have been started while the process was late, so that its time is a little before.
    failIf(open.asked.repeats()
               && open.outcomes > (nowUs - open.sinceUs) / open.asked.intervalUs + 2,
           "more repetitions than fell due");
}

// Each repetition that fell due is told or counted as skipped. Those before the order was stopped
// may be either.
void Book::addSkipped(Counts& counts, const Open& open, bool isOver)
{
    if (!open.asked.repeats()) {
        return;
    }
    const auto dueAt = [&](qint64 us) { return (us - open.sinceUs) / open.asked.intervalUs + 1; };
    const qint64 untold = dueAt(World::current()->nowUs()) - open.outcomes;
    counts.leastSkipped += isOver ? 0 : untold - 1; // what it skipped last was not counted any more
    counts.mostSkipped += untold;
    ++counts.repeating;
}

void Book::checkCounts(const WorkerStatistics& counted) const
{
    using Code = OrderFailure::Code;
    Counts counts = m_counts;
    for (const auto& [number, open] : m_open) {
        addSkipped(counts, open, open.isStopped);
    }
    const auto skipped = static_cast<qint64>(counted.ticksSkipped);
    if (skipped < counts.leastSkipped - counts.repeating
        || skipped > counts.mostSkipped + counts.repeating) {
        fail(QStringLiteral("%1 repetitions count as skipped, of %2 to %3")
                 .arg(skipped)
                 .arg(counts.leastSkipped)
                 .arg(counts.mostSkipped));
    }
    // Of an order that was stopped the worker may have counted what was not told any more.
    const std::array<std::pair<quint64, quint64>, 5> kinds{
        {{counted.done, counts.done},
         {counted.timeouts, counts.failed[Code::Timeout]},
         {counted.badReplies, counts.failed[Code::BadReply]},
         {counted.exceptions, counts.failed[Code::DeviceException]},
         {counted.notConnected, counts.failed[Code::NotConnected]}}};
    quint64 untold = 0;
    for (const auto& [seen, told] : kinds) {
        failIf(seen < told, "an outcome was told that was not counted as such");
        untold += seen - told;
    }
    if (untold > counts.mostUntold) {
        fail(QStringLiteral("%1 outcomes were counted that were not told, of %2 that may be")
                 .arg(static_cast<qint64>(untold))
                 .arg(counts.mostUntold));
    }
}

void Book::ended(const DOrder& order)
{
    const Open* open = find(order.id);
    if (open == nullptr && m_isLeaving) {
        return; // destroyed within start(), which has not given the id back yet
    }
    if (open == nullptr) {
        fail(QStringLiteral("an order (%1) ended that was not open").arg(order.command));
        return;
    }
    const int number = m_numberOfId.at(order.id);
    note("end", number, QByteArray::number(static_cast<int>(order.state)));
    ++m_endedOrders;
    checkEnd(*open, order);
    addSkipped(m_counts, *open, true);
    if (open->isStopped) {
        m_counts.mostUntold += open->asked.repeats() ? untoldRepetitions : 1;
    }
    if (order.state == DOrder::State::Failed) {
        noteFailure(*open, number, order.failure);
        if (open->asked.function != 0) {
            ++m_counts.failed[order.failure.code];
        }
        noteTaint(*open, order.failure);
    }
    if (order.failure.code == OrderFailure::Code::NotConnected && open->results == 0) {
        handOver(*open);
    }
    if (m_flight && m_flight->order == number) {
        m_flight->order = 0;
    }
    const auto start = m_numberOfStart.find(open->asked.start);
    if (start != m_numberOfStart.end() && start->second == number) {
        m_numberOfStart.erase(start);
    }
    const bool wasConnect = open->asked.command == QLatin1String("connect");
    m_open.erase(number);
    m_numberOfId.erase(order.id);
    m_beginsAtOnce = m_beginsAtOnce || (wasConnect && connectOrder() != 0); // it waited for this
}

// Requests for identification are alike: when an order had failed already, and has just not been
// told so, the request that left was that of the next one.
void Book::handOver(const Open& failed)
{
    const auto next = nextToIdentify();
    if (failed.asked.function != identify || failed.request == 0 || failed.link != m_link
        || next == m_open.end()) {
        return;
    }
    Open& open = m_open.at(next->first);
    open.request = failed.request;
    open.link = failed.link;
    open.leftUs = failed.leftUs;
    open.leftAt = failed.leftAt;
    if (m_flight) {
        m_flight->order = next->first;
    }
    m_lastAsked = next->first;
    m_isAnswered = false;
}

// That there was no connection is not what came of a request on the one that there is: it is told
// late of the repetition before.
void Book::noteFailure(const Open& open, int number, const OrderFailure& failure)
{
    if (failure.code != OrderFailure::Code::NotConnected || open.link != m_link) {
        noteAnswer(number);
    }
}

void Book::noteAnswer(int number)
{
    if (number == m_lastAsked && !std::exchange(m_isAnswered, true)) {
        m_answeredUs = awakeUs();
    }
}

// Neither early, nor without a look at what had come.
void Book::checkTimeout(const Open& open) const
{
    failIf(!m_isLine && (open.link == 0 || World::current()->nowUs() - open.leftUs < limitUs),
           "an order timed out before its time");
    failIf(open.link != 0 && open.link == m_leftUnread,
           "an order timed out while its reply was there");
}

// Whatever comes next on that link could be what this order did not get.
void Book::noteTaint(const Open& open, const OrderFailure& failure)
{
    using Code = OrderFailure::Code;
    if (failure.code == Code::Timeout) {
        checkTimeout(open);
        m_flight.reset();
    }
    failIf(failure.code == Code::NotConnected && m_awaitedUs && open.sinceUs > *m_awaitedUs,
           "an order did not wait for the first attempt");
    if (failure.code == Code::BadReply) {
        checkRefusal(open);
    }
    const bool isTimeout = failure.code == Code::Timeout && !m_options.transactionIds;
    if (failure.code == Code::BadReply || isTimeout) {
        m_tainted = open.link;
    }
}

// When nothing else came on its link.
void Book::checkRefusal(const Open& open) const
{
    const Device::Said* own = m_device.said(open.request);
    failIf(!m_options.isRtu() && own != nullptr && own->isAsItShould
               && own->function == open.asked.function
               && m_closed == std::pair(open.link, qint64{dataOffset} + own->data.size()),
           "a good reply was refused");
}

void Book::checkEnd(const Open& open, const DOrder& order) const
{
    const bool isOnce = open.asked.function != 0 && !open.asked.repeats();
    const bool isDone = order.state == DOrder::State::Done;
    if (isOnce && isDone && open.results != 1) {
        fail(QStringLiteral("an order was done with %1 results").arg(open.results));
    }
    failIf(isOnce && order.state == DOrder::State::Failed && open.results != 0,
           "an order failed with a result");
    failIf(order.state == DOrder::State::Stopped && !open.isStopped,
           "an order was stopped that nobody stopped");
    failIf(open.asked.repeats() && order.state == DOrder::State::Done,
           "a repeating order was done");
    failIf(open.asked.writes() && m_device.carriedOut(open.asked.start) > 1,
           "a write was carried out more than once");
}

void Book::running(quint64 instruction)
{
    ++m_turn;
    m_runs = instruction;
    m_isToAsk = true;
}

void Book::instructionDone(quint64 id) const
{
    failIf(m_stopped.count(id) > 0, "an instruction that was stopped was done");
}

void Book::status(bool isConnected)
{
    note("status", isConnected ? 1 : 0);
    failIf(isConnected == m_isTold, "the same status was told twice");
    m_isTold = isConnected;
    if (isConnected) { // a shared one may be older, and hands may have been shaken for long
        m_openedUs = World::current()->nowUs();
        m_trafficUs = awakeUs();
    }
    // Of a shared one the news may be older than its end.
    failIf(isConnected && m_line.openCount() == 0 && !m_options.share, "connected without a link");
}

// --- what the process does with its links ---

// A reply takes the delay back to its first step, and so does a connect unless it is refused.
void Book::checkDelay() const
{
    const auto stepUs = [](int vain) {
        return std::min(longestDelayUs, firstDelayUs << std::min(20, std::max(0, vain)));
    };
    const qint64 passedUs = World::current()->nowUs() - *m_goneUs;
    if (m_vain > 0 && passedUs < stepUs(m_vain - 1) / 2 - ms) {
        fail(QStringLiteral("attempt %1 came after %2 us, before its time")
                 .arg(m_vain)
                 .arg(passedUs));
    }
    failIf(awakeUs() - *m_goneAwakeUs > stepUs(m_mostVain) * 3 / 2 + turnUs,
           "an attempt came after its time");
}

void Book::attempts(quint64 link)
{
    note("attempt", static_cast<qint64>(link));
    failIf(!m_line.isUsed(), "a link is tried for an object that has gone");
    failIf(m_line.openCount() != 1, "a link is tried beside another one");
    const auto connects = std::count_if(m_open.begin(), m_open.end(), [](const auto& one) {
        return one.second.asked.command == QLatin1String("connect");
    });
    failIf(!m_line.isWanted(), "a link is tried that nobody wants");
    if (m_goneUs && m_isVainKnown && !m_beginsAtOnce && connects == 1 && connectOrder() != 0
        && !m_line.isShared()) {
        checkDelay();
    }
    m_link = link;
    m_isOpen = false;
    m_hasReceived = false;
    m_receivedBytes = 0;
    m_requests = 0;
    m_echo = 0;
    m_hasAnswered = false;
    m_goneUs.reset();
    if (m_mostVain == 0 && !m_line.isShared()) {
        m_awaitedUs = World::current()->nowUs();
    }
    if (std::exchange(m_beginsAtOnce, false)) {
        m_vain = 0;
    }
}

void Book::opens(quint64 link)
{
    note("open", static_cast<qint64>(link));
    m_isOpen = true;
    m_awaitedUs.reset();
    m_openedUs = World::current()->nowUs();
    m_trafficUs = awakeUs();
    m_silentUs = m_openedUs + restUs;
}

int Book::numberOf(const QByteArray& request) const
{
    const auto function = static_cast<quint8>(request.at(functionOffset));
    if (function != identify) {
        const auto it = m_numberOfStart.find(wordIn(request, startOffset));
        return it != m_numberOfStart.end() ? it->second : -1;
    }
    const auto it = nextToIdentify();
    return it != m_open.end() ? it->first : 0;
}

Book::OpenOrders::const_iterator Book::nextToIdentify() const
{
    return std::find_if(m_open.begin(), m_open.end(), [](const auto& one) {
        return one.second.asked.function == identify && one.second.request == 0
            && one.second.results == 0 && !one.second.isStopped;
    });
}

void Book::checkHeader(const QByteArray& request)
{
    const QByteArray id = request.left(2);
    const int unit = static_cast<uchar>(request.at(unitOffset));
    if (unit != std::max(0, m_options.unit)) {
        fail(QStringLiteral("a request to unit %1").arg(unit));
    }
    failIf(m_options.transactionIds ? id == m_lastTransaction : id != QByteArray("\xaa\xbb"),
           "a request with a wrong transaction id");
    m_lastTransaction = id;
}

// As it stands on the wire.
bool Book::isUnitOf(const QByteArray& wire) const
{
    return m_options.unit == static_cast<uchar>(wire.at(m_options.isRtu() ? 0 : unitOffset));
}

// With ids the link stays after a time-out, that of a stopped order and of the keep-alive too.
void Book::checkOneIsOut(quint64 link) const
{
    const bool mayBeOver = m_options.transactionIds && m_flight
        && (m_flight->order == 0 || World::current()->nowUs() - m_flight->leftUs >= limitUs);
    failIf(m_flight && m_flight->link == link && !mayBeOver,
           "a request left while another one was out");
    failIf(m_tainted == link, "a request left on a link that could not be trusted any more");
}

void Book::otherSends(quint64 link, const QByteArray& bytes)
{
    checkOneIsOut(link);
    ++m_requests;
    m_lastTransaction = bytes.left(2);
    m_lastAsked = -1;
    m_isAnswered = false;
    m_flight.reset();
    m_trafficUs = awakeUs();
}

void Book::sends(quint64 link, const QByteArray& wire)
{
    const QByteArray bytes = m_options.isRtu() ? Rtu::request(wire) : wire;
    if (bytes.isEmpty()) {
        fail(QStringLiteral("a request with a wrong CRC"));
        return;
    }
    ++m_requests;
    m_echo = m_options.serial.endsWith(QLatin1String("echo")) ? wire.size() : 0;
    const int asked = numberOf(bytes);
    const int number = m_isLine ? std::max(0, asked) : asked; // it may be over by now
    note("request", number, bytes);
    failIf(!m_isOpen, "a request left on a link that was not open");
    checkHeader(bytes);
    checkOneIsOut(link);
    failIf(m_isLine && World::current()->nowUs() < m_silentUs,
           "a request left on a line that was not silent");
    if (number < 0) {
        fail(QStringLiteral("a request left for an order that is over"));
        return;
    }
    m_isToAsk = false;
    m_lastAsked = number;
    m_isAnswered = false;
    m_reply.clear();
    m_wholeUs.reset();
    m_flight = Flight{link, number, awakeUs(), World::current()->nowUs()};
    m_trafficUs = awakeUs();
    if (number == 0) {
        checkNobodyWaits();
        return;
    }
    Open& open = m_open.at(number);
    failIf(open.asked.function != static_cast<quint8>(bytes.at(functionOffset)),
           "a request of another function");
    failIf(!open.asked.repeats() && open.request != 0, "an order has asked twice");
    if (open.id == 0 && open.request != 0) {
        open.early.push_back(open.request);
    }
    open.request = m_device.lastRequest();
    open.instruction = m_runs;
    open.link = link;
    open.leftUs = World::current()->nowUs();
    open.leftAt = World::current()->moment();
    if (!m_isLine) {
        checkTurn(open);
    }
}

// Orders that run once go first, in the order of their coming; but what is called already is
// called.
void Book::checkTurn(const Open& open) const
{
    for (const auto& [number, other] : m_open) {
        const bool waits = other.sinceUs > m_openedUs && other.waitsToAsk() && other.id != 0
            && other.turn + 1 < m_turn;
        const bool isBefore = open.asked.repeats() || other.id < open.id;
        if (waits && isBefore && open.id != 0) {
            fail(QStringLiteral("order %1 had to wait behind another one").arg(number));
        }
    }
}

// The keep-alive goes in front of no repetition that has fallen due.
void Book::checkNobodyWaits() const
{
    for (const auto& [number, open] : m_open) {
        if (!open.asked.repeats() || open.isStopped || m_isLine) {
            continue;
        }
        const qint64 everyUs = open.asked.intervalUs;
        const qint64 dueUs = open.sinceUs + ((open.toldUs - open.sinceUs) / everyUs + 1) * everyUs;
        failIf(dueUs > m_openedUs && dueUs + ms < World::current()->nowUs(),
               "a keep-alive left in front of a repetition");
    }
}

QByteArray Book::withoutEcho(const QByteArray& bytes)
{
    const int echo = std::min(m_echo, bytes.size());
    m_echo -= echo;
    return bytes.mid(echo);
}

void Book::receives(quint64 link, const QByteArray& arrived)
{
    note("receive", arrived.size(), arrived);
    m_silentUs = World::current()->nowUs() + silenceUs;
    const QByteArray bytes = withoutEcho(arrived);
    if (bytes.isEmpty()) {
        return;
    }
    m_trafficUs = awakeUs();
    m_hasReceived = true;
    m_receivedBytes += bytes.size();
    // Nothing asked for it, so it may answer what is asked next, if that does not wait for silence.
    if (m_isAnswered && !m_options.transactionIds && !m_isLine) {
        m_tainted = link;
    }
    m_isVainKnown = m_isVainKnown && m_hasAnswered;
    if (m_flight && m_flight->link == link) {
        m_flight.reset();
        noteReply(bytes);
    } else if (!m_reply.isEmpty()) {
        noteReply(bytes);
    }
}

// As far as its header tells.
void Book::noteReply(const QByteArray& bytes)
{
    m_reply += bytes;
    constexpr int headerSize = 6;
    const bool isWhole = m_reply.size() >= headerSize
        && m_reply.size() >= headerSize + qFromBigEndian<quint16>(m_reply.constData() + 4);
    if (isWhole && !m_wholeUs) {
        m_wholeUs = awakeUs();
    }
}

void Book::linkGone()
{
    if (m_link == 0) {
        return;
    }
    m_mostVain = m_hasAnswered ? 0 : m_mostVain + 1;
    if (!m_hasReceived) {
        ++m_vain;
    } else if (m_hasAnswered) { // a link that has answered may be replaced at once
        m_vain = 0;
        m_isVainKnown = true;
    }
    m_link = 0;
    m_isOpen = false;
    m_awaitedUs.reset();
    m_goneUs = World::current()->nowUs();
    m_goneAwakeUs = awakeUs();
}

void Book::loses(quint64 link)
{
    note("lost", static_cast<qint64>(link));
    m_lost = {link, awakeUs()};
    linkGone();
}

void Book::closes(quint64 link, int unread)
{
    const bool isFlooded = m_receivedBytes > fewBytes || unread > fewBytes;
    m_leftUnread = unread > 0 && !isFlooded ? link : 0;
    m_closed = {link, m_requests == 1 ? m_receivedBytes : -1};
    note("close", static_cast<qint64>(link));
    checkLostIsClosed();
    m_lost = {};
    linkGone();
    m_flight.reset();
    m_reply.clear();
    m_wholeUs.reset();
}

void Book::checkLostIsClosed() const
{
    failIf(m_lost.first != 0 && awakeUs() - m_lost.second > turnUs,
           "the end of a link was known, and it was not closed");
}

// Whatever others do meanwhile, as well or badly as it answers.
void Book::checkReplyIsTold() const
{
    const bool isPlain = !m_isLine && !m_options.isRtu() && !m_options.transactionIds
        && m_options.unit < 0; // else some are dropped
    const auto asker = m_open.find(m_lastAsked);
    const bool isAwaited =
        asker != m_open.end() && asker->second.id != 0 && !asker->second.isStopped && !m_isAnswered;
    if (isPlain && isAwaited && m_wholeUs && awakeUs() - *m_wholeUs > turnUs) {
        fail(QStringLiteral("the reply to order %1 is held up").arg(m_lastAsked));
    }
}

void Book::looksUp()
{
    note("look up");
    m_isVainKnown = false;
    ++m_mostVain; // of an attempt that fails by that nothing else is seen
    if (m_goneUs) {
        m_goneAwakeUs = awakeUs();
    }
}

bool Book::wantsLink() const
{
    return std::any_of(m_open.begin(), m_open.end(), [](const auto& one) {
        return one.second.asked.command == QLatin1String("connect") && !one.second.isStopped;
    });
}

// --- what may be wrong without anything happening ---

void Book::look()
{
    if (!m_isThere) {
        return;
    }
    const bool isOut = m_flight && m_flight->order != 0 && m_open.count(m_flight->order) > 0;
    if (isOut && awakeUs() - m_flight->sinceUs > limitUs + turnUs) {
        fail(QStringLiteral("order %1 has outlived its limit").arg(m_flight->order));
    }
    checkNothingIsHeldUp();
    checkReplyIsTold();
    checkLostIsClosed();
    const bool isKept = connectOrder() != 0;
    failIf(isKept && m_goneUs && m_link == 0
               && awakeUs() - *m_goneAwakeUs > longestDelayUs * 3 / 2 + longestLookUpUs + turnUs,
           "no attempt for longer than the longest delay");
    const qint64 pauseUs = m_options.share ? longestDelayUs * 3 / 2 : 0; // of a silent unit
    failIf(isKept && m_isOpen && awakeUs() - m_trafficUs > keepAliveUs + limitUs + turnUs + pauseUs,
           "an open link was not looked after");
}

// By an event loop in a slot, for one, unless that of the order whose request leaves next. Others
// have the turn of a shared line, a serial one must be silent first, and a handshake may take long.
void Book::checkNothingIsHeldUp() const
{
    const bool isPlain = !m_isLine && !m_options.share;
    const bool isIdle = isPlain && m_isTold && m_isOpen && !m_isToAsk && m_tainted != m_link
        && (m_requests == 0 ? !m_options.tls : m_isAnswered);
    for (const auto& [number, open] : m_open) {
        const qint64 sinceUs = std::max({m_trafficUs, m_answeredUs, open.sinceAwakeUs});
        if (isIdle && open.waitsToAsk() && awakeUs() - sinceUs > turnUs) {
            fail(QStringLiteral("order %1 is held up").arg(number));
        }
    }
}

void Book::expectCalm(int openOrders, const WorkerStatistics& counted)
{
    checkCounts(counted);
    failIf(!m_isOpen, "all is well, and there is no link");
    if (static_cast<int>(m_open.size()) != openOrders) {
        fail(QStringLiteral("all is well, and %1 orders are open instead of %2")
                 .arg(m_open.size())
                 .arg(openOrders));
    }
    for (const auto& [number, open] : m_open) {
        const qint64 passedUs = World::current()->nowUs() - open.sinceUs;
        if (open.asked.repeats() && open.outcomes < passedUs / open.asked.intervalUs) {
            fail(QStringLiteral("all is well, and only %1 repetitions came").arg(open.outcomes));
        }
    }
}

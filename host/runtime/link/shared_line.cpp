#include <runtime/link/shared_line.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace {

constexpr std::size_t readSize = 4096;

auto wayOf(const LinkOptions& options)
{
    return std::tie(options.transactionIds, options.rtu, options.serial, options.tls, options.tlsCa,
                    options.tlsCert, options.tlsKey, options.tlsName);
}

template <typename Container>
void removeAll(Container& places, const LinePlace* place)
{
    places.erase(std::remove(places.begin(), places.end(), place), places.end());
}

} // namespace

// --- a place ---

LinePlace::LinePlace(const LinkOptions& options, const ReplyFraming& framing, const Events& events,
                     const LinkSocket::Watch& watch)
    : m_options(options), m_framing(framing), m_events(events), m_watch(watch)
{
}

LinePlace::~LinePlace()
{
    if (m_line) {
        m_line->remove(*this);
    }
}

void LinePlace::open(const QString& host, quint16 port, bool anew)
{
    if (!m_line || !m_line->isFor(*this, host, port)) {
        if (m_line) {
            m_line->remove(*this);
        }
        m_line = SharedLine::of(*this, host, port);
        m_line->add(*this);
    }
    m_line->open(*this, anew);
}

void LinePlace::close(bool isSpoiled)
{
    if (m_line) {
        m_line->close(*this, isSpoiled);
    }
}

const LinkLife* LinePlace::askTurn() { return m_line ? m_line->ask(*this) : nullptr; }

bool LinePlace::hasTurn() const { return m_line && m_line->isTurnOf(*this); }

void LinePlace::giveTurn(bool isOver, const LinkLife& life)
{
    if (m_line) {
        m_line->takeTurn(*this, isOver, life);
    }
}

void LinePlace::look()
{
    if (m_line) {
        const std::shared_ptr<SharedLine> line = m_line; // what it tells may end this place
        line->look(*this);
    }
}

QString LinePlace::missing() const { return m_line ? m_line->missing() : QString(); }

LinkSocket* LinePlace::socket() { return m_line ? &m_line->socket() : nullptr; }

// --- the line ---

std::shared_ptr<SharedLine> SharedLine::of(const LinePlace& place, const QString& host,
                                           quint16 port)
{
    thread_local std::vector<std::weak_ptr<SharedLine>> lines;
    lines.erase(
        std::remove_if(lines.begin(), lines.end(), [](const auto& line) { return line.expired(); }),
        lines.end());
    for (const std::weak_ptr<SharedLine>& known : lines) {
        std::shared_ptr<SharedLine> line = known.lock();
        if (line->isFor(place, host, port)) {
            return line;
        }
    }
    auto line = std::make_shared<SharedLine>(host, port, place.m_options, place.m_framing);
    line->m_link.setSerial(place.m_serial.get()); // for good, as what it tells may open it anew
    lines.push_back(line);
    return line;
}

SharedLine::SharedLine(QString host, quint16 port, const LinkOptions& options,
                       const ReplyFraming& framing)
    : m_host(std::move(host)), m_port(port), m_options(options), m_framing(framing),
      m_link({{this, &SharedLine::handleOpened},
              {this, &SharedLine::handleFailed},
              {this, &SharedLine::handleReadable}},
             {{this, &SharedLine::handleDrained},
              {this, &SharedLine::handleDropped},
              {this, &SharedLine::handleWritten},
              {this, &SharedLine::handlePassed}}),
      m_due({this, &SharedLine::tellNext})
{
    m_link.socket().setTranslation(Translation::makeShared(options, framing));
}

SharedLine::~SharedLine() = default;

bool SharedLine::isFor(const LinePlace& place, const QString& host, quint16 port) const
{
    return host == m_host && port == m_port && &place.m_framing == &m_framing
        && wayOf(place.m_options) == wayOf(m_options);
}

void SharedLine::remove(LinePlace& place)
{
    close(place, false);
    removeAll(m_places, &place);
    m_lastHolder = m_lastHolder == &place ? nullptr : m_lastHolder;
}

// --- the connection ---

void SharedLine::open(LinePlace& place, bool anew)
{
    using PlaceState = LinePlace::State;
    forgetNotices(place);
    removeAll(m_waiting, &place);
    if (m_state == State::Open && anew && place.m_state == PlaceState::On) {
        place.m_state = PlaceState::Off;
        spoil(QStringLiteral("another device on the connection needs a new one"));
    }
    if (m_state == State::Open) {
        leaveTurn(place);
        place.m_state = PlaceState::On;
        post(place, Kind::Opened);
    } else {
        place.m_state = PlaceState::Waiting;
        if (m_state == State::Closed) {
            begin(place);
        }
    }
}

void SharedLine::begin(LinePlace& place)
{
    m_state = State::Opening;
    m_isTainted = false;
    m_life = {};
    m_link.setTls(place.m_tls ? std::make_unique<TlsSettings>(*place.m_tls) : nullptr);
    m_link.open(m_host, m_port);
}

void SharedLine::close(LinePlace& place, bool isSpoiled)
{
    const bool spoilsIt = isSpoiled && place.m_state == LinePlace::State::On;
    forgetNotices(place);
    removeAll(m_waiting, &place);
    place.m_state = LinePlace::State::Off;
    if (!isUsed()) {
        forgetTurn();
        m_link.close();
        m_state = State::Closed;
    } else if (m_state == State::Open && socket().state() != QAbstractSocket::ConnectedState) {
        lose(socket().errorString());
    } else if (m_state == State::Open && spoilsIt) {
        spoil(QStringLiteral("another device on the connection needs a new one"));
    } else {
        leaveTurn(place);
    }
}

// Without a word on what it has asked.
void SharedLine::leaveTurn(const LinePlace& place)
{
    if (m_holder != &place) {
        return;
    }
    const bool hasAsked = !m_isTurnComing && m_hasAsked;
    forgetTurn();
    if (hasAsked) { // even where replies are told apart: no second request leaves beside it
        spoilLater();
    } else {
        grantNext();
    }
}

bool SharedLine::isUsed() const
{
    return std::any_of(m_places.begin(), m_places.end(), [](const LinePlace* place) {
        return place->m_state != LinePlace::State::Off;
    });
}

// Closes the connection, as something may come over it that nobody waits for. Everybody on it may
// open it again.
void SharedLine::spoil(const QString& why) { closeFor(Kind::Replaced, why); }

// Not here and now: whoever has the connection spoiled may be about to leave it, as the last one.
void SharedLine::spoilLater()
{
    m_isTainted = true;
    m_due.set(0);
}

void SharedLine::lose(const QString& why) { closeFor(Kind::Ended, why); }

void SharedLine::closeFor(Kind kind, const QString& why)
{
    m_link.close();
    m_state = State::Closed;
    forgetTurn();
    m_waiting.clear();
    for (LinePlace* place : m_places) {
        if (place->m_state != LinePlace::State::Off) {
            place->m_state = LinePlace::State::Off;
            post(*place, kind, why);
        }
    }
}

void SharedLine::handleOpened()
{
    m_state = State::Open;
    for (LinePlace* place : m_places) {
        if (place->m_state == LinePlace::State::Waiting) {
            place->m_state = LinePlace::State::On;
            post(*place, Kind::Opened);
        }
    }
    grantNext();
}

void SharedLine::handleFailed(const QString& why) { closeFor(Kind::Failed, why); }

void SharedLine::handleReadable()
{
    const std::shared_ptr<SharedLine> keep = shared_from_this(); // whoever reads may be the last
    if (m_holder != nullptr && !m_isTurnComing) {
        const LinePlace::Events events = m_holder->m_events; // which may end it
        events.readable();
    } else {
        readUnasked();
    }
    if (m_state == State::Open && socket().state() != QAbstractSocket::ConnectedState) {
        lose(socket().errorString());
    }
}

// What comes while nobody has asked may be taken for the reply to whoever asks next.
void SharedLine::readUnasked()
{
    std::array<char, readSize> bytes;
    socket().endRequest();
    const auto size = static_cast<int>(socket().receive(bytes.data(), bytes.size()));
    if (size > 0) {
        handleDropped(size, 0);
        spoil(QStringLiteral("%1 bytes came unasked").arg(size));
    }
}

void SharedLine::look(LinePlace& place)
{
    m_link.look();
    const bool isThere = std::find(m_places.begin(), m_places.end(), &place) != m_places.end();
    while (isThere) {
        const auto it = std::find_if(m_notices.begin(), m_notices.end(),
                                     [&](const Notice& notice) { return notice.place == &place; });
        if (it == m_notices.end()) {
            return;
        }
        const Notice notice = *it;
        m_notices.erase(it);
        tell(notice);
    }
}

// --- the turn ---

const LinkLife* SharedLine::ask(LinePlace& place)
{
    if (m_holder == &place || place.m_state == LinePlace::State::Off) {
        return nullptr;
    }
    const bool isFree = m_state == State::Open && !m_isTainted && m_holder == nullptr
        && m_waiting.empty() && place.m_state == LinePlace::State::On;
    if (isFree) {
        beginTurn(place);
        return &m_life;
    }
    if (std::find(m_waiting.begin(), m_waiting.end(), &place) == m_waiting.end()) {
        m_waiting.push_back(&place);
    }
    return nullptr;
}

void SharedLine::takeTurn(LinePlace& place, bool isOver, const LinkLife& life)
{
    if (!isTurnOf(place)) {
        return;
    }
    m_life = life;
    forgetTurn();
    socket().endRequest();
    if (socket().state() != QAbstractSocket::ConnectedState) {
        lose(socket().errorString());
    } else if (!isOver && !socket().tellsRepliesApart()) {
        spoilLater();
    } else {
        grantNext();
    }
}

void SharedLine::forgetTurn()
{
    m_holder = nullptr;
    m_isTurnComing = false;
    const auto isTurn = [](const Notice& notice) { return notice.kind == Kind::Turn; };
    m_notices.erase(std::remove_if(m_notices.begin(), m_notices.end(), isTurn), m_notices.end());
}

void SharedLine::grantNext()
{
    const bool isFree = m_state == State::Open && !m_isTainted && m_holder == nullptr;
    if (isFree && !m_waiting.empty()) {
        m_holder = m_waiting.front();
        m_isTurnComing = true;
        m_waiting.pop_front();
        post(*m_holder, Kind::Turn);
    }
}

void SharedLine::beginTurn(LinePlace& place)
{
    m_holder = &place;
    m_lastHolder = &place;
    m_isTurnComing = false;
    m_hasAsked = false;
    removeAll(m_places, &place);
    m_places.push_back(&place);
    socket().beginTurn(place.m_options.unit);
    socket().beginRequest();
}

// --- telling ---

void SharedLine::post(LinePlace& place, Kind kind, const QString& text)
{
    m_notices.push_back({&place, kind, text});
    m_due.set(0);
}

void SharedLine::forgetNotices(const LinePlace& place)
{
    const auto isItsOwn = [&](const Notice& notice) { return notice.place == &place; };
    m_notices.erase(std::remove_if(m_notices.begin(), m_notices.end(), isItsOwn), m_notices.end());
}

// One a turn of the loop, and the next one is due before: who hears of it may run a loop of its
// own.
void SharedLine::tellNext()
{
    const std::shared_ptr<SharedLine> keep = shared_from_this();
    if (m_isTainted && m_state == State::Open) {
        spoil(QStringLiteral("a reply may still come that nobody waits for"));
    }
    if (m_notices.empty()) {
        return;
    }
    const Notice notice = m_notices.front();
    m_notices.pop_front();
    if (!m_notices.empty()) {
        m_due.set(0);
    }
    tell(notice);
}

void SharedLine::tell(const Notice& notice)
{
    const LinePlace::Events events = notice.place->m_events;
    switch (notice.kind) {
    case Kind::Opened:
        events.opened();
        break;
    case Kind::Failed:
        events.failed(notice.text);
        break;
    case Kind::Ended:
        events.ended(notice.text);
        break;
    case Kind::Replaced:
        events.replaced(notice.text);
        break;
    case Kind::Turn:
        beginTurn(*notice.place);
        events.turnCame(m_life);
        break;
    }
}

// --- what passes, for whoever has the turn ---

void SharedLine::handleWritten(const char* data, int size)
{
    m_hasAsked = true;
    if (m_holder != nullptr) {
        m_holder->m_watch.written(data, size);
    }
}

void SharedLine::handleDrained(int size)
{
    if (m_holder != nullptr) {
        m_holder->m_watch.drained(size);
    }
}

void SharedLine::handleDropped(int size, int replies)
{
    m_life.silences = 0; // somebody lives
    if (m_lastHolder != nullptr) {
        m_lastHolder->m_watch.dropped(size, replies);
    }
}

void SharedLine::handlePassed(bool outgoing, const char* data, int size)
{
    if (m_lastHolder != nullptr) {
        m_lastHolder->m_watch.passed(outgoing, data, size);
    }
}

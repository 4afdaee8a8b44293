#include "device.h"

#include "rtu.h"
#include "world.h"

#include <hostile/frames.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace {

using namespace Frames;

constexpr qint64 ms = 1000;
constexpr std::size_t rememberedReplies = 4096;
constexpr int floodSize = 4096;

QByteArray bytesOf(quint64 request, int start, int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        const quint64 mixed =
            Random::mixed(request * 0x10000 + static_cast<quint64>(start + i / 2));
        bytes[i] = static_cast<char>(i % 2 == 0 ? mixed : mixed >> 8);
    }
    return bytes;
}

} // namespace

Device::Device(const Plan& plan, int number)
    : m_plan(plan), m_number(number), m_random(plan.seed, static_cast<quint64>('D' + number))
{
    goAwayLater();
}

const Device::Said* Device::said(quint64 request) const
{
    const auto it = m_said.find(request);
    return it != m_said.end() ? &it->second : nullptr;
}

int Device::carriedOut(quint16 start) const
{
    const auto it = m_carriedOut.find(start);
    return it != m_carriedOut.end() ? it->second : 0;
}

// --- being there ---

void Device::goAwayLater()
{
    World::current()->outside(m_random.spread(m_plan.upUs / 8, m_plan.upUs * 2),
                              [this] { goAway(); });
}

void Device::goAway()
{
    if (!m_isCalm && m_away == Away::No) {
        leave(m_random.spread(m_plan.awayUs / 8, m_plan.awayUs * 2));
    }
}

void Device::leave(qint64 us)
{
    World::current()->note(m_number, "device goes");
    m_away = static_cast<Away>(m_random.between(1, 3));
    const int how = m_random.below(3); // it says so, or is found to have gone, or nobody knows
    for (const auto& [link, wire] : m_wires) {
        if (how == 0) {
            Network::current()->end(reached(link));
        } else if (how == 1) {
            Network::current()->reset(reached(link));
        }
    }
    World::current()->outside(us, [this] { comeBack(); });
}

// What it had in its hands before is gone.
void Device::comeBack()
{
    if (m_away == Away::No) {
        return;
    }
    World::current()->note(m_number, "device comes");
    m_away = Away::No;
    for (const auto& [link, wire] : m_wires) {
        if (!isLine()) {
            Network::current()->reset(link);
        }
    }
    goAwayLater();
}

void Device::calmDown()
{
    comeBack();
    m_isCalm = true;
    for (const auto& [link, wire] : m_wires) {
        Network::current()->end(reached(link));
    }
}

void Device::asked(quint64 link)
{
    if (isLine()) {
        m_plugged = link;
        accept(link);
        return;
    }
    const bool isBusy = !m_isCalm && m_random.perMille(m_plan.spoiledPerMille / 10);
    const qint64 delayUs = isBusy ? m_random.spread(100 * ms, 4000 * ms) : latencyUs();
    World::current()->outside(delayUs, [this, link] { accept(link); });
}

// A serial line is there without its device.
void Device::accept(quint64 link)
{
    if (m_away == Away::Refusing) {
        Network::current()->refuse(link, isLine() ? ENOENT : ECONNREFUSED);
    } else if (m_away != Away::Silent || isLine()) {
        Network::current()->accept(link);
        wireOf(link);
    }
    if (m_away == Away::Closing) {
        Network::current()->end(link);
    }
}

// --- answering ---

// A request is on its way when the process closes the link: it is carried out none the less.
void Device::sent(quint64 link, const QByteArray& bytes)
{
    const quint64 request = ++m_requests;
    if (options().serial.endsWith(QLatin1String("echo"))) {
        pass(link, 0, bytes, request, 0);
    }
    World::current()->outside(latencyUs(), [this, link, request, bytes] {
        answer(link, request, options().isRtu() ? Rtu::request(bytes) : bytes);
    });
}

QByteArray Device::onWire(const QByteArray& frames) const
{
    return options().isRtu() ? Rtu::replies(frames) : frames;
}

// Of a part of the reply so much as of the whole. What is wrong with the length, which is not
// there, is wrong with the CRC.
QByteArray Device::onWire(const QByteArray& now, const QByteArray& reply) const
{
    if (options().isRtu() && now != reply && now.mid(headerSize) == reply.mid(headerSize)) {
        return Rtu::spoiled(reply);
    }
    const bool isPart = now.size() < reply.size() && reply.startsWith(now);
    const QByteArray whole = onWire(reply);
    return isPart ? whole.left(whole.size() * now.size() / reply.size()) : onWire(now);
}

void Device::answer(quint64 link, quint64 request, const QByteArray& frame)
{
    if (m_away != Away::No) {
        return;
    }
    Said said;
    said.request = request;
    const QByteArray reply = replyTo(frame, said.function, carryOut(frame, said));
    if (!Network::current()->isOpen(reached(link))) {
        return;
    }
    Wire& wire = wireOf(link);
    const bool hasUnit = options().unit >= 0;
    const MisbehaviourKind* kind = drawKind(reply, wire);
    said.isAsItShould = kind == nullptr;
    said.isNeverGood = kind != nullptr
        && (kind->isNeverGood || (hasUnit && kind->name == std::string("other-unit")));
    const QByteArray now = kind != nullptr ? kind->now(reply, wire.lastReply) : reply;
    if (now.size() > dataOffset) {
        said.sentFunction = static_cast<quint8>(now.at(functionOffset));
        said.sentData = now.mid(dataOffset, reply.size() - dataOffset);
    }
    m_said[request] = said;
    if (m_said.size() > rememberedReplies) {
        m_said.erase(m_said.begin());
    }
    m_spoiled += kind != nullptr ? 1 : 0;
    World::current()->note(m_number, kind != nullptr ? kind->name : "answers",
                           static_cast<qint64>(request));
    const bool isSlow = !m_isCalm && m_random.perMille(m_plan.spoiledPerMille / 4);
    const qint64 delayUs = isSlow ? m_random.spread(10 * ms, 2500 * ms) : latencyUs();
    const QByteArray leaves = onWire(now, reply);
    send(link, delayUs, leaves, request, wire.lastRequest);
    wire.lastReply = reply;
    wire.lastRequest = request;
    if (kind != nullptr) {
        follow(link, onWire(reply), leaves.size(), request, *kind);
    }
}

// Gives back the reply's body behind the function code.
QByteArray Device::carryOut(const QByteArray& frame, Said& said)
{
    said.function = static_cast<quint8>(frame.at(functionOffset));
    if (said.function == 17) {
        said.data = bytesOf(said.request, 0, 8);
        return static_cast<char>(said.data.size()) + said.data;
    }
    said.start = wordIn(frame, startOffset);
    if (said.start % missingOf == missingOf - 1) {
        said.function |= exceptionBit;
        return QByteArray(1, illegalDataAddress);
    }
    if (said.function > 4) {
        ++m_carriedOut[said.start];
        World::current()->note(m_number, "carries out", said.start);
        return frame.mid(startOffset, echoSize - startOffset);
    }
    said.quantity = wordIn(frame, quantityOffset);
    const int size = said.function <= 2 ? (said.quantity + 7) / 8 : 2 * said.quantity;
    said.data = bytesOf(said.request, said.start, size);
    return static_cast<char>(size) + said.data;
}

const MisbehaviourKind* Device::drawKind(const QByteArray& reply, const Wire& wire)
{
    if (m_isCalm || m_plan.kinds.empty() || !m_random.perMille(m_plan.spoiledPerMille)) {
        return nullptr;
    }
    const MisbehaviourKind* kind =
        m_plan
            .kinds[static_cast<std::size_t>(m_random.below(static_cast<int>(m_plan.kinds.size())))];
    return kind->spares(reply, wire.lastReply) ? nullptr : kind;
}

// \a other is a request to which a copy of the reply may be among it.
void Device::send(quint64 link, qint64 delayUs, const QByteArray& bytes, quint64 request,
                  quint64 other)
{
    QByteArray wire = m_seal(link, bytes);
    const bool isBroken =
        !m_isCalm && options().tls && m_random.perMille(m_plan.spoiledPerMille / 20);
    if (isBroken && !wire.isEmpty()) { // a record that nobody can open
        wire[wire.size() - 1] = static_cast<char>(~wire.at(wire.size() - 1));
    }
    pass(link, delayUs, wire, request, other);
}

// Some never answer, or too late.
void Device::greet(quint64 link, const QByteArray& wire)
{
    if (m_isCalm || !m_random.perMille(m_plan.spoiledPerMille / 10)) {
        const bool isSlow = !m_isCalm && m_random.perMille(m_plan.spoiledPerMille / 4);
        pass(link, isSlow ? m_random.spread(10 * ms, 4000 * ms) : latencyUs(), wire, 0, 0);
    }
}

// The wire keeps the order of what is sent, and may cut it anywhere.
void Device::pass(quint64 link, qint64 delayUs, const QByteArray& bytes, quint64 request,
                  quint64 other)
{
    World& world = *World::current();
    Wire& wire = wireOf(link);
    wire.freeUs = std::max(wire.freeUs, world.nowUs() + delayUs);
    for (int at = 0; at < bytes.size();) {
        const bool isCut = m_plan.cuts && !m_isCalm && m_random.oneIn(8);
        const int size = isCut ? m_random.between(1, bytes.size() - at) : bytes.size() - at;
        world.outside(wire.freeUs - world.nowUs(),
                      [this, link, piece = bytes.mid(at, size), request, other] {
                          arrive(link, piece, request, other);
                      });
        at += size;
        wire.freeUs += m_random.oneIn(3) ? latencyUs() : 0;
    }
}

void Device::arrive(quint64 link, const QByteArray& bytes, quint64 request, quint64 other)
{
    if (m_away == Away::No) {
        Network::current()->deliver(reached(link), bytes);
        noteArrival(request);
        noteArrival(other);
    }
}

void Device::noteArrival(quint64 request)
{
    const auto it = m_said.find(request);
    if (it != m_said.end()) {
        it->second.arrived = World::current()->moment();
    }
}

void Device::follow(quint64 link, const QByteArray& reply, int sent, quint64 request,
                    const MisbehaviourKind& kind)
{
    using Then = MisbehaviourKind::Then;
    switch (kind.then) {
    case Then::Nothing:
        break;
    case Then::Rest:
        send(link, m_random.spread(100 * ms, 8000 * ms), reply.mid(sent), request);
        break;
    case Then::ReplySoon:
        send(link, 5 * ms, reply, request);
        break;
    case Then::ByteByByte:
        for (int i = 0; i < reply.size(); ++i) {
            send(link, qint64{i + 1} * 5 * ms, reply.mid(i, 1), request);
        }
        break;
    case Then::Drip:
        for (int i = 0; i < reply.size(); ++i) {
            send(link, qint64{i + 1} * 250 * ms, reply.mid(i, 1), request);
        }
        break;
    case Then::Flood:
        repeat(link, ms, reply.repeated(floodSize / reply.size()), request);
        break;
    case Then::Close:
    case Then::HalfClose:
        endLater(link);
        break;
    case Then::Reboot:
        goAway();
        break;
    }
}

void Device::repeat(quint64 link, qint64 pauseUs, const QByteArray& bytes, quint64 request)
{
    World::current()->outside(pauseUs, [this, link, pauseUs, bytes, request] {
        if (m_isCalm || !Network::current()->isOpen(link)) {
            return;
        }
        const bool isBetween = wireOf(link).freeUs <= World::current()->nowUs();
        if (isBetween && Network::current()->hasRoom(link)) {
            arrive(link, m_seal(link, bytes), request, 0);
        }
        repeat(link, pauseUs, bytes, request);
    });
}

// Behind what is on the wire.
void Device::endLater(quint64 link)
{
    World& world = *World::current();
    world.outside(std::max<qint64>(0, wireOf(link).freeUs - world.nowUs()) + latencyUs(),
                  [this, link] { Network::current()->end(reached(link)); });
}

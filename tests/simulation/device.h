#pragma once

#include "network.h"
#include "plan.h"
#include "random.h"

#include <misbehaviour.h>

#include <functional>
#include <map>

/// A device on the virtual network. What it says to a request is said to no other one: registers
/// hold other values with each, so whatever is mixed up shows.
class Device final : public Network::Listener
{
public:
    /// What it says to a request.
    struct Said
    {
        quint64 request = 0;
        quint8 function = 0;
        quint16 start = 0;
        quint16 quantity = 0;
        QByteArray data; ///< as it travels, behind the byte count
        quint8 sentFunction = 0; ///< what was sent in its place, if that is a whole reply
        QByteArray sentData;
        quint64 arrived = 0; ///< the last moment at which a copy of it reached the process
        bool isAsItShould = false; ///< that is what was sent
        bool isNeverGood = false; ///< what was sent in its place cannot answer the request
    };

    Device(const Plan& plan, int number);

    /// The number of the request that has left last.
    quint64 lastRequest() const { return m_requests; }
    /// What was said to it, as far as that is remembered.
    const Said* said(quint64 request) const;
    /// How many replies were not what they should have been.
    quint64 spoiled() const { return m_spoiled; }
    /// The first of those remembered for which it holds.
    template <typename Condition>
    bool hasSaid(const Condition& condition) const
    {
        return std::any_of(m_said.begin(), m_said.end(),
                           [&](const auto& one) { return condition(one.second); });
    }
    /// How often a write to this register was carried out since forget().
    int carriedOut(quint16 start) const;
    void forget(quint16 start) { m_carriedOut.erase(start); }

    /// From here on all is well, for ever.
    void calmDown();
    /// It is away for so long, even in the calm.
    void leave(qint64 us);

    /// What leaves on a link to say some bytes.
    using Seal = std::function<QByteArray(quint64 link, const QByteArray& bytes)>;
    void sealBy(const Seal& seal) { m_seal = seal; }
    /// Sends what \a seal would not understand.
    void greet(quint64 link, const QByteArray& wire);

    void asked(quint64 link) override;
    void sent(quint64 link, const QByteArray& bytes) override;
    void left(quint64 link) override { m_wires.erase(link); }

    static constexpr quint16 missingOf = 16; ///< of so many registers the last one is missing

private:
    enum class Away { No, Refusing, Silent, Closing };

    /// A connection as the device has it.
    struct Wire
    {
        qint64 freeUs = 0; ///< when what was sent last arrives
        QByteArray lastReply;
        quint64 lastRequest = 0;
    };

    qint64 latencyUs() { return m_random.spread(20, m_plan.latencyUs); }
    bool isLine() const { return !options().serial.isEmpty(); }
    Wire& wireOf(quint64 link) { return m_wires[isLine() ? 0 : link]; }
    quint64 reached(quint64 link) const { return isLine() ? m_plugged : link; }
    void accept(quint64 link);
    void goAwayLater();
    void goAway();
    void comeBack();
    const LinkOptions& options() const { return m_plan.links[static_cast<std::size_t>(m_number)]; }
    QByteArray onWire(const QByteArray& frames) const;
    QByteArray onWire(const QByteArray& now, const QByteArray& reply) const;
    void answer(quint64 link, quint64 request, const QByteArray& frame);
    QByteArray carryOut(const QByteArray& frame, Said& said);
    const MisbehaviourKind* drawKind(const QByteArray& reply, const Wire& wire);
    void send(quint64 link, qint64 delayUs, const QByteArray& bytes, quint64 request,
              quint64 other = 0);
    void pass(quint64 link, qint64 delayUs, const QByteArray& bytes, quint64 request,
              quint64 other);
    void arrive(quint64 link, const QByteArray& bytes, quint64 request, quint64 other);
    void noteArrival(quint64 request);
    void follow(quint64 link, const QByteArray& reply, int sent, quint64 request,
                const MisbehaviourKind& kind);
    void repeat(quint64 link, qint64 pauseUs, const QByteArray& bytes, quint64 request);
    void endLater(quint64 link);

    const Plan& m_plan;
    int m_number;
    Random m_random;
    Seal m_seal = [](quint64, const QByteArray& bytes) { return bytes; };
    Away m_away = Away::No;
    bool m_isCalm = false;
    quint64 m_requests = 0;
    quint64 m_spoiled = 0;
    std::map<quint64, Said> m_said; ///< by request
    std::map<quint64, Wire> m_wires; ///< by link; a serial line has one, whoever opens it
    quint64 m_plugged = 0; ///< the link that has the serial line now
    std::map<quint16, int> m_carriedOut;
};

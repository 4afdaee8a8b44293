#include "plan.h"

#include <misbehaviour.h>

#include <array>
#include <limits>

namespace {

constexpr int idSize = 2;
using Then = MisbehaviourKind::Then;

QByteArray withOtherId(const QByteArray& reply, const QByteArray& /*last*/)
{
    QByteArray other = reply;
    other[1] = static_cast<char>(other.at(1) - 1);
    return other;
}

// What another unit was told, as the reply to this request.
QByteArray swapped(const QByteArray& reply, const QByteArray& last)
{
    return last.isEmpty() ? reply : reply.left(idSize) + last.mid(idSize);
}

constexpr std::array<MisbehaviourKind, 2> crossing{{
    {"other-id", "the reply with the id of the request before", withOtherId, Then::Nothing, true},
    {"swapped", "the last reply with the id of this request", swapped, Then::Nothing, true},
}};

} // namespace

Plan Plan::crossed(int units)
{
    Plan plan(1);
    plan.objects = units;
    plan.shares = true;
    plan.readsOnly = true;
    plan.spoiledPerMille = 800;
    plan.nestedPerMille = 0;
    plan.upUs = std::numeric_limits<qint64>::max() / 4;
    plan.latencyUs = 1000;
    plan.links.assign(static_cast<std::size_t>(units), {});
    int unit = 0;
    for (LinkOptions& link : plan.links) {
        link.share = true;
        link.transactionIds = true;
        link.keepTrying = true;
        link.unit = ++unit;
    }
    plan.kinds.clear();
    for (const char* name : {"late", "twice", "copy-before", "copy-after", "stale", "other-unit"}) {
        plan.kinds.push_back(findMisbehaviour(QString::fromLatin1(name)));
    }
    for (const MisbehaviourKind& kind : crossing) {
        plan.kinds.push_back(&kind);
    }
    return plan;
}

#include "plan.h"

#include "random.h"
#include "tls_server.h"

#include <misbehaviour.h>

#include <QCoreApplication>

#include <algorithm>

namespace {

constexpr qint64 ms = 1000;
constexpr int firstPort = 502;
constexpr qint64 second = 1000 * ms;
constexpr qint64 minute = 60 * second;
constexpr qint64 hour = 60 * minute;

// From calm to hell.
constexpr std::array<int, 6> spoiled{0, 2, 20, 100, 300, 900};
constexpr std::array<int, 5> nested{0, 1, 10, 50, 200};

constexpr std::array<int, deedCount> usual{400, 30, 120, 20, 20, 1, 60, 12, 6, 10, 30, 10, 4};

QString serialPrefix()
{
    return QStringLiteral("/dev/simulated-%1-").arg(QCoreApplication::applicationPid());
}

LinkOptions drawLink(Random& random)
{
    LinkOptions options;
    options.keepTrying = random.oneIn(3);
    options.unit = random.oneIn(3) ? random.below(256) : -1;
    options.transactionIds = random.oneIn(3);
    options.rtu = random.oneIn(4);
    if (options.rtu) {
        options.unit = random.between(1, 255);
        options.transactionIds = false;
    }
    return options;
}

} // namespace

const std::array<const char*, deedCount> deedNames{
    "read",    "listen",     "write", "inform", "mistake",      "burst",  "stop-one",
    "connect", "disconnect", "trace", "loop",   "stop-process", "destroy"};

Plan::Plan(quint64 givenSeed) : seed(givenSeed)
{
    Random random(seed, 'P');
    objects = random.between(1, 3);
    busyUs = random.spread(2 * second, 10 * minute);
    calmUs = random.oneIn(8) ? hour : 3 * minute;
    outageUs = random.oneIn(4) ? random.spread(minute, 4 * hour) : 0;
    spoiledPerMille = spoiled[static_cast<std::size_t>(random.below(spoiled.size()))];
    nestedPerMille = nested[static_cast<std::size_t>(random.below(nested.size()))];
    thinkUs = qMax(busyUs / random.between(10, 200), 2 * ms);
    upUs = random.oneIn(3) ? 10 * busyUs : qMax(busyUs / random.between(1, 20), 50 * ms);
    awayUs = random.spread(20 * ms, 5 * minute);
    latencyUs = random.spread(100, 200 * ms);
    const int few = random.oneIn(2) ? 3 : 1;
    for (const MisbehaviourKind& kind : misbehaviourKinds) {
        if (random.oneIn(few)) {
            kinds.push_back(&kind);
        }
    }
    for (LinkOptions& link : links) {
        link = drawLink(random);
    }
    drawShare();
    drawWays();
    Random spins(seed, 'E');
    for (LinkOptions& link : links) {
        link.spin = spins.oneIn(4);
    }
    weights = usual;
    for (int& weight : weights) { // some do one thing most of the time, and another one never
        const int turn = random.below(10);
        weight = turn == 0 ? 0 : turn == 1 ? 5 * weight : weight;
    }
    drawCrowd();
}

// Much is ready at once, and each object's reports use the others.
void Plan::drawCrowd()
{
    Random random(seed, 'C');
    if (shares || !random.oneIn(4)) {
        return;
    }
    heldUpUs = random.spread(ms, 300 * ms);
    objects = static_cast<int>(links.size());
    busyUs = qMin(busyUs, 10 * second);
    thinkUs = qMin(thinkUs, random.spread(2 * ms, 200 * ms));
    nestedPerMille = qMax(nestedPerMille, 20);
    weights[static_cast<std::size_t>(Deed::Loop)] *= random.between(1, 5);
}

// Units of one device behind one link.
void Plan::drawShare()
{
    Random random(seed, 'S');
    shares = random.oneIn(4);
    if (!shares) {
        return;
    }
    objects = random.between(1, 3);
    int unit = random.below(256);
    for (LinkOptions& link : links) {
        link.share = true;
        link.transactionIds = links.front().transactionIds;
        link.rtu = links.front().rtu;
        link.unit = link.rtu ? 1 + unit++ % 255 : unit++ % 256;
    }
}

// TLS, and serial lines, whose files are this process's alone.
void Plan::drawWays()
{
    Random random(seed, 'L');
    for (std::size_t i = 0; i < links.size(); ++i) {
        const int station = stationOf(static_cast<int>(i));
        LinkOptions& link = links[i];
        if (station < static_cast<int>(i)) {
            const LinkOptions& first = links.front();
            link.tls = first.tls;
            link.tlsCa = first.tlsCa;
            link.tlsName = first.tlsName;
            link.serial = first.serial;
        } else if (random.oneIn(6)) {
            link.tls = true;
            link.tlsCa = TlsServer::certificateFile();
            link.tlsName = QStringLiteral("device");
        } else if (random.oneIn(6)) {
            link.serial = serialPrefix() + QString::number(firstPort + station)
                + QLatin1String(random.oneIn(3) ? ",19200,8E1,echo" : "");
        }
        if (!link.serial.isEmpty()) {
            link.rtu = false;
            link.transactionIds = false;
            link.unit = shares ? 1 + static_cast<int>(i) : random.between(1, 255);
        }
    }
}

quint16 Plan::serialPort(const char* path)
{
    const QByteArray prefix = serialPrefix().toLatin1();
    return qstrncmp(path, prefix.constData(), static_cast<uint>(prefix.size())) == 0
        ? QByteArray(path + prefix.size()).toUShort()
        : quint16{0};
}

Plan Plan::quiet(quint64 seed, int days)
{
    Plan plan(seed);
    plan.objects = 1;
    plan.busyUs = ms;
    plan.calmUs = days * 24 * hour;
    plan.calmIntervalMs = 1000;
    plan.outageUs = 0;
    plan.heldUpUs = 0;
    plan.shares = false;
    plan.links.assign(1, {});
    plan.spoiledPerMille = 0;
    plan.latencyUs = 100;
    return plan;
}

std::vector<std::string> Plan::parts() const
{
    std::vector<std::string> names{"inside", "away", "outage", "held-up", "cuts", "link-options"};
    names.insert(names.end(), deedNames.begin(), deedNames.end());
    for (const MisbehaviourKind* kind : kinds) {
        names.emplace_back(kind->name);
    }
    return names;
}

bool Plan::leaveOut(const std::string& part)
{
    const auto deed = std::find(deedNames.begin(), deedNames.end(), part);
    if (deed != deedNames.end()) {
        weights[static_cast<std::size_t>(deed - deedNames.begin())] = 0;
    } else if (part == "inside") {
        nestedPerMille = 0;
    } else if (part == "away") {
        upUs = 1000 * hour;
    } else if (part == "outage") {
        outageUs = 0;
    } else if (part == "held-up") {
        heldUpUs = 0;
    } else if (part == "link-options") {
        links.assign(links.size(), {});
        shares = false;
    } else if (part == "cuts") {
        cuts = false;
    } else {
        kinds.erase(
            std::remove(kinds.begin(), kinds.end(), findMisbehaviour(QString::fromStdString(part))),
            kinds.end());
        return findMisbehaviour(QString::fromStdString(part)) != nullptr;
    }
    return true;
}

#include "user.h"

#include "world.h"

#include <plugin_management/d_abstract_worker.h>

#include <QEventLoop>

#include <numeric>
#include <utility>

namespace {

constexpr qint64 ms = 1000;
constexpr int firstPort = 502;
constexpr int deepest = 3;
constexpr int burstSize = 1100;
constexpr int readEveryMs = 5000;
constexpr int startsEach = 20000; // of those who share a device

QString text(const char* latin1) { return QString::fromLatin1(latin1); }

} // namespace

User::User(const Plan& plan, int number, DAbstractPlugin* root, Book& book)
    : m_plan(plan), m_number(number), m_root(root), m_book(book),
      m_random(plan.seed, static_cast<quint64>('U' + number)),
      m_nextStart(static_cast<quint16>(plan.shares ? number * startsEach : 0))
{
}

User::~User() { destroy(); }

void User::begin()
{
    make();
    connectIt();
    if (m_plan.readsOnly) {
        start(listen(2, readEveryMs));
    } else {
        think();
    }
}

void User::think()
{
    World::current()->inside(m_random.spread(m_plan.thinkUs / 8, m_plan.thinkUs * 2), [this] {
        if (m_isCalm) {
            return;
        }
        if (m_object == nullptr) {
            make();
            connectIt();
        } else {
            doDeed(drawDeed());
        }
        think();
    });
}

Deed User::drawDeed()
{
    const auto& weights = m_plan.weights;
    int drawn = m_random.below(std::accumulate(weights.begin(), weights.end(), 0) + 1);
    for (int i = 0; i < deedCount; ++i) {
        drawn -= weights[static_cast<std::size_t>(i)];
        if (drawn < 0) {
            return static_cast<Deed>(i);
        }
    }
    return Deed::Read;
}

// Within a report, which may be that of another deed.
void User::inside()
{
    if (m_object == nullptr || m_isCalm || m_depth >= deepest
        || !m_random.perMille(m_plan.nestedPerMille)) {
        return;
    }
    World::current()->note(m_number, "inside", m_depth);
    const Deed deed = m_random.oneIn(40) ? Deed::Destroy : drawDeed();
    const bool isOwn = m_others.empty() || m_random.oneIn(2);
    User* whose = isOwn
        ? this
        : m_others[static_cast<std::size_t>(m_random.below(static_cast<int>(m_others.size())))];
    if (whose->m_depth < deepest) {
        whose->doDeed(deed);
    }
}

void User::doDeed(Deed deed)
{
    ++m_depth;
    switch (deed) {
    case Deed::Read:
    case Deed::Listen:
    case Deed::Write:
    case Deed::Inform:
    case Deed::Mistake:
        start(draw(deed));
        break;
    case Deed::Burst:
        burst();
        break;
    case Deed::StopOne:
        stop(m_book.anyOrder(m_random));
        break;
    case Deed::Connect:
        connectIt();
        break;
    case Deed::Disconnect:
        stop(m_book.connectOrder());
        break;
    case Deed::Trace:
        traceFrames();
        break;
    case Deed::Loop:
        runLoop();
        break;
    case Deed::Stop:
        World::current()->note(m_number, "process stops");
        World::current()->stopProcess(m_random.spread(10 * ms, 20000 * ms));
        break;
    case Deed::Destroy:
        destroy();
        break;
    }
    --m_depth;
}

// --- the object ---

void User::make()
{
    m_object = dynamic_cast<DAbstractPlugin*>(
        m_root->createInstance(QUuid(static_cast<uint>(m_number), 0, 0, 0, 0, 0, 0, 0, 0, 0, 1)));
    m_object->setObjectName(text("object %1").arg(m_number));
    m_object->initPluginCommands();
    m_object->setLinkOptions(m_plan.links.at(static_cast<std::size_t>(m_number)));
    m_book.objectMade();
    World::current()->note(m_number, "made");
    m_isTraced = false;
    follow();
}

void User::follow()
{
    DOrders* orders = m_object->orders();
    QObject::connect(orders, &DOrders::sigOrderResult,
                     [this](quint64 id, const QString& name, const QVariant& value) {
                         m_book.result(id, name, value);
                         inside();
                     });
    QObject::connect(orders, &DOrders::sigOrderTrouble,
                     [this](quint64 id, const OrderFailure& failure) {
                         m_book.trouble(id, failure);
                         inside();
                     });
    QObject::connect(orders, &DOrders::sigOrderFinished, [this](const DOrder& order) {
        m_isProbed = m_isProbed || (order.id == m_probe && order.state == DOrder::State::Done);
        m_book.ended(order);
        inside();
    });
    QObject::connect(m_object->worker(), &DAbstractWorker::sigOrderRunning, [this](quint64 id) {
        m_book.running(id);
        inside();
    });
    QObject::connect(m_object->worker(), &DAbstractWorker::sigStatusChanged,
                     [this](bool isConnected) {
                         m_book.status(isConnected);
                         inside();
                     });
    QObject::connect(m_object->worker(), &DAbstractWorker::sigOrderDone, [this](quint64 id) {
        m_book.instructionDone(id);
        inside();
    });
}

// Its orders are stopped with it.
void User::destroy()
{
    if (m_object == nullptr) {
        return;
    }
    World::current()->note(m_number, "destroyed", m_depth);
    m_book.objectLeaving();
    delete std::exchange(m_object, nullptr);
    m_book.objectGone();
}

WorkerStatistics User::statistics() const { return m_object->worker()->statistics(); }

// --- orders ---

void User::start(const Asked& asked)
{
    if (m_object == nullptr) {
        return;
    }
    const int number = m_book.starting(asked);
    m_book.begun(number, m_object->orders()->start(asked.command, asked.parameters));
}

void User::stop(quint64 id)
{
    if (m_object != nullptr && id != 0) {
        m_book.stopping(id);
        m_object->orders()->stop(id);
    }
}

void User::connectIt()
{
    Asked asked;
    asked.command = text("connect");
    const int station = m_plan.stationOf(m_number);
    const bool named = station % 2 == 1;
    const QString name = text("device%1-%2").arg(m_plan.seed).arg(station);
    asked.parameters = {{text("host"), named ? name : text("10.0.0.1")},
                        {text("port"), firstPort + station},
                        {text("timeout"), m_isCalm ? 3000 : m_random.between(100, 3000)}};
    start(asked);
}

void User::burst()
{
    for (int i = 0; i < burstSize && m_object != nullptr; ++i) {
        start(draw(Deed::Read));
    }
}

Asked User::draw(Deed deed)
{
    switch (deed) {
    case Deed::Listen:
        return read(text("listen"));
    case Deed::Write:
        return write();
    case Deed::Inform: {
        Asked asked;
        asked.command = text("deviceInformation");
        asked.function = 17;
        return asked;
    }
    case Deed::Mistake: {
        Asked asked = read(text("read"));
        asked.function = 0;
        asked.parameters[text("registerType")] = text("holdingRegister");
        return asked;
    }
    default:
        return read(text("read"));
    }
}

// In the calm, one that is there.
quint16 User::nextStart()
{
    do {
        ++m_nextStart;
    } while (m_book.isAskedFor(m_nextStart)
             || (m_isCalm && m_nextStart % Device::missingOf == Device::missingOf - 1));
    return m_nextStart;
}

Asked User::read(const QString& command)
{
    static constexpr std::array<const char*, 4> types{"coilsRegister", "inputStatus",
                                                      "holdingRegisters", "inputRegisters"};
    static constexpr std::array<quint16, 6> wordCounts{1, 1, 2, 2, 10, 63};
    static constexpr std::array<quint16, 4> bitCounts{17, 25, 30, 49};
    Asked asked;
    asked.command = command;
    asked.function = static_cast<quint8>(m_random.between(1, 4));
    asked.start = nextStart();
    asked.quantity = asked.function <= 2 ? bitCounts[static_cast<std::size_t>(m_random.below(4))]
                                         : wordCounts[static_cast<std::size_t>(m_random.below(6))];
    asked.parameters = {{text("register"), asked.start},
                        {text("registerType"), text(types[asked.function - 1U])},
                        {text("dataSize"), asked.quantity}};
    if (command == QLatin1String("listen")) {
        const qint64 intervalMs = m_random.spread(40, 60000);
        asked.intervalUs = intervalMs * ms;
        asked.parameters[text("recurrentInterval")] = static_cast<int>(intervalMs);
    }
    return asked;
}

Asked User::write()
{
    Asked asked;
    asked.command = text("write");
    asked.start = nextStart();
    static constexpr std::array<quint8, 3> functions{5, 6, 16};
    asked.function = functions[static_cast<std::size_t>(m_random.below(3))];
    const char* type = asked.function == 5 ? "coilsRegister"
        : asked.function == 6              ? "singleRegister"
                                           : "multipleRegisters";
    QVariantList data;
    const int count = asked.function == 16 ? m_random.between(1, 4) : 1;
    for (int i = 0; i < count; ++i) {
        data << m_random.below(0x10000);
    }
    asked.parameters = {
        {text("register"), asked.start}, {text("registerType"), text(type)}, {text("data"), data}};
    return asked;
}

Asked User::listen(int count, int intervalMs)
{
    Asked asked;
    asked.command = text("listen");
    asked.function = 3;
    asked.start = nextStart();
    asked.quantity = static_cast<quint16>(count);
    asked.intervalUs = intervalMs * ms;
    asked.parameters = {{text("register"), asked.start},
                        {text("registerType"), text("holdingRegisters")},
                        {text("dataSize"), count},
                        {text("recurrentInterval"), intervalMs}};
    return asked;
}

void User::traceFrames()
{
    if (m_object == nullptr) {
        return;
    }
    m_isTraced = !m_isTraced;
    DAbstractWorker::FrameTracer tracer;
    if (m_isTraced) {
        tracer = [this](bool outgoing, const QByteArray& frame) {
            World::current()->note(m_number, outgoing ? "traced out" : "traced in", 0, frame);
            inside();
        };
    }
    m_object->worker()->setFrameTracer(tracer);
}

void User::runLoop()
{
    QEventLoop loop;
    World::current()->inside(m_random.spread(ms, 300 * ms), [this, &loop] {
        look(); // now something has waited for as long as it may
        loop.quit();
    });
    loop.exec();
}

void User::look()
{
    m_book.look();
    for (User* other : m_others) {
        other->m_book.look();
    }
}

// --- the calm ---

void User::calmDown()
{
    m_isCalm = true;
    if (m_object == nullptr) {
        make();
    }
    for (const quint64 id : m_book.openOrders()) {
        stop(id);
    }
    World::current()->inside(10000 * ms, [this] { connectIt(); }); // when no look-up is under way
    World::current()->inside(60000 * ms, [this] {
        Asked asked = read(text("listen"));
        asked.intervalUs = m_plan.calmIntervalMs * ms;
        asked.parameters[text("recurrentInterval")] = m_plan.calmIntervalMs;
        start(asked);
    });
}

void User::probe()
{
    const Asked asked = draw(Deed::Read);
    const int number = m_book.starting(asked);
    m_probe = m_object->orders()->start(asked.command, asked.parameters);
    m_book.begun(number, m_probe);
}

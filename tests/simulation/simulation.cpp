#include "simulation.h"

#include "book.h"
#include "device.h"
#include "network.h"
#include "resolver.h"
#include "user.h"
#include "world.h"

#include <QEventLoop>

#include <memory>
#include <vector>

namespace {

constexpr qint64 ms = 1000;
constexpr qint64 lookEveryUs = 500 * ms;
constexpr qint64 probeUs = 5000 * ms;
constexpr qint64 lastUs = 15000 * ms; // longer than any look-up
constexpr qint64 connectedAfterUs = 90000 * ms; // in the calm
constexpr quint16 firstPort = 502;

/// One device, one object, and the book on both.
struct Station
{
    Station(const Plan& plan, int number, DAbstractPlugin* root)
        : device(plan, number), book(number, static_cast<quint16>(firstPort + number),
                                     plan.links.at(static_cast<std::size_t>(number)), device),
          user(plan, number, root, book)
    {
        Network::current()->listen(static_cast<quint16>(firstPort + number), &device, &book);
    }

    Device device;
    Book book;
    User user;
};

class Simulation
{
public:
    Simulation(const Plan& plan, DAbstractPlugin* root, bool isTraced)
        : m_plan(plan), m_world(plan.seed, isTraced), m_network(plan.seed)
    {
        for (int i = 0; i < plan.objects; ++i) {
            m_stations.push_back(std::make_unique<Station>(plan, i, root));
        }
    }

    ~Simulation()
    {
        m_stations.clear();
        Resolver::endAll();
    }
    Q_DISABLE_COPY(Simulation)

    Findings run()
    {
        const qint64 beganUs = m_world.nowUs();
        lookAgain();
        each([](Station& one) { one.user.begin(); });
        pass(m_plan.busyUs);
        m_world.note(-1, "calm");
        m_world.calmDown();
        each([](Station& one) { one.device.calmDown(); });
        each([](Station& one) { one.user.calmDown(); });
        if (m_plan.outageUs > 0) {
            pass(connectedAfterUs);
            each([this](Station& one) { one.device.leave(m_plan.outageUs); });
            pass(m_plan.outageUs);
        }
        pass(m_plan.calmUs);
        each([](Station& one) { one.book.expectCalm(User::calmOrders, one.user.statistics()); });
        each([](Station& one) { one.user.probe(); });
        pass(probeUs);
        each([this](Station& one) {
            if (!one.user.isProbed()) {
                m_world.fail(-1, QStringLiteral("all is well, and an order is not answered"));
            }
        });
        end();
        return findings(beganUs);
    }

private:
    template <typename Function>
    void each(const Function& function)
    {
        for (const auto& station : m_stations) {
            function(*station);
        }
    }

    void pass(qint64 us)
    {
        if (m_world.trace().failed()) {
            return;
        }
        QEventLoop loop;
        m_world.inside(us, [&loop] { loop.quit(); });
        loop.exec();
    }

    void lookAgain()
    {
        m_world.inside(lookEveryUs, [this] {
            each([](Station& one) { one.book.look(); });
            lookAgain();
        });
    }

    void end()
    {
        each([](Station& one) { one.user.destroy(); });
        pass(lastUs);
        if (m_network.openCount() != 0) {
            m_world.fail(-1, QStringLiteral("descriptors are left over"));
        }
    }

    Findings findings(qint64 beganUs)
    {
        Findings found;
        found.failure = m_world.trace().failure();
        found.failedAtUs = m_world.trace().failedAtUs() - beganUs;
        found.hash = m_world.trace().hash();
        found.virtualUs = m_world.nowUs() - beganUs;
        each([&found](const Station& one) {
            found.orders += one.book.answers() + one.book.endedOrders();
            found.staleCopies += one.book.staleCopies();
        });
        return found;
    }

    const Plan& m_plan;
    World m_world;
    Network m_network;
    std::vector<std::unique_ptr<Station>> m_stations;
};

} // namespace

Findings simulate(const Plan& plan, DAbstractPlugin* root, bool isTraced)
{
    return Simulation(plan, root, isTraced).run();
}

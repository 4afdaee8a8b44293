#include "simulation.h"

#include "book.h"
#include "device.h"
#include "line.h"
#include "network.h"
#include "resolver.h"
#include "secured.h"
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
constexpr qint64 spoiledPieceUs = 60000 * ms;
constexpr quint16 firstPort = 502;

/// One device, and the links to it.
struct Station
{
    Station(const Plan& plan, int number)
        : device(plan, number), line(static_cast<quint16>(firstPort + number))
    {
        const auto port = static_cast<quint16>(firstPort + number);
        if (plan.links.at(static_cast<std::size_t>(number)).tls) {
            secured = std::make_unique<Secured>(device, line);
            Network::current()->listen(port, secured.get(), secured.get());
        } else {
            Network::current()->listen(port, &device, &line);
        }
    }

    Device device;
    Line line;
    std::unique_ptr<Secured> secured;
};

/// One object, and the book on it.
struct Client
{
    Client(const Plan& plan, int number, DAbstractPlugin* root, Station& station)
        : book(number, station.line, plan.links.at(static_cast<std::size_t>(number)),
               station.device),
          user(plan, number, root, book)
    {
    }

    Book book;
    User user;
};

class Simulation
{
public:
    Simulation(const Plan& plan, DAbstractPlugin* root, bool isTraced)
        : m_plan(plan), m_world(plan.seed, isTraced), m_network(plan.seed)
    {
        m_world.setHeldUp(plan.heldUpUs);
        for (int i = 0; i < plan.objects; ++i) {
            if (plan.stationOf(i) == i) {
                m_stations.push_back(std::make_unique<Station>(plan, i));
            }
            m_clients.push_back(std::make_unique<Client>(plan, i, root, *m_stations.back()));
        }
        if (plan.heldUpUs > 0) {
            letUsersMeet();
        }
    }

    ~Simulation()
    {
        Resolver::endAll(); // what still looks a name up tells the stations
        m_clients.clear();
        m_stations.clear();
    }
    Q_DISABLE_COPY(Simulation)

    Findings run()
    {
        const qint64 beganUs = m_world.nowUs();
        lookAgain();
        each([](Client& one) { one.user.begin(); });
        pass(m_plan.busyUs);
        m_world.note(-1, "calm");
        m_world.calmDown();
        for (const auto& station : m_stations) {
            station->device.calmDown();
        }
        each([](Client& one) { one.user.calmDown(); });
        if (m_plan.outageUs > 0) {
            pass(connectedAfterUs);
            for (const auto& station : m_stations) {
                station->device.leave(m_plan.outageUs);
            }
            pass(m_plan.outageUs);
        }
        pass(m_plan.calmUs);
        each([](Client& one) { one.book.expectCalm(User::calmOrders, one.user.statistics()); });
        each([](Client& one) { one.user.probe(); });
        pass(probeUs);
        each([this](Client& one) {
            if (!one.user.isProbed()) {
                m_world.fail(-1, QStringLiteral("all is well, and an order is not answered"));
            }
        });
        end();
        return findings(beganUs);
    }

    Findings runSpoiled(quint64 spoiled)
    {
        const qint64 beganUs = m_world.nowUs();
        lookAgain();
        each([](Client& one) { one.user.begin(); });
        while (m_stations.front()->device.spoiled() < spoiled && !m_world.trace().failed()) {
            pass(spoiledPieceUs);
        }
        end();
        return findings(beganUs);
    }

private:
    template <typename Function>
    void each(const Function& function)
    {
        for (const auto& client : m_clients) {
            function(*client);
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

    // Where much is ready at once, one object's report uses others whose replies are there too.
    void letUsersMeet()
    {
        each([this](Client& one) {
            std::vector<User*> others;
            each([&](Client& other) {
                if (&other != &one) {
                    others.push_back(&other.user);
                }
            });
            one.user.setOthers(others);
        });
    }

    void lookAgain()
    {
        m_world.inside(lookEveryUs, [this] {
            each([](Client& one) { one.book.look(); });
            lookAgain();
        });
    }

    void end()
    {
        each([](Client& one) { one.user.destroy(); });
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
        each([&found](const Client& one) {
            found.orders += one.book.answers() + one.book.endedOrders();
            found.staleCopies += one.book.staleCopies();
        });
        for (const auto& station : m_stations) {
            found.spoiled += station->device.spoiled();
        }
        return found;
    }

    const Plan& m_plan;
    World m_world;
    Network m_network;
    std::vector<std::unique_ptr<Station>> m_stations;
    std::vector<std::unique_ptr<Client>> m_clients;
};

} // namespace

Findings simulate(const Plan& plan, DAbstractPlugin* root, bool isTraced)
{
    return Simulation(plan, root, isTraced).run();
}

Findings simulateSpoiled(const Plan& plan, DAbstractPlugin* root, quint64 spoiled)
{
    return Simulation(plan, root, false).runSpoiled(spoiled);
}

#pragma once

#include <plugin_management/d_abstract_plugin.h>

#include <QString>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

constexpr int firstRegister = 100;
constexpr int registersRead = 10;

struct Job
{
    QString kind;
    int intervalMs = 0; ///< 0: read after read
    quint16 port = 0;
    int devices = 0;
    int threads = 1;
    double seconds = 0;
    DAbstractPlugin* root = nullptr;
};

[[noreturn]] void fail(const QString& why);
/// Of a clock that never goes back.
qint64 nowUs();

/// What the devices of one thread have seen. Each thread writes its own.
struct alignas(64) Tally
{
    std::atomic<quint64> orders{0};
    std::atomic<bool> measuring{false};
    std::vector<quint32> latenessUs; ///< of the ticks in the window
    double roundTripSumUs = 0; ///< of roundTrips of them
    double roundTrips = 0;

    void keepLateness(qint64 us)
    {
        if (measuring.load(std::memory_order_relaxed)) {
            latenessUs.push_back(static_cast<quint32>(std::max<qint64>(0, us)));
        }
    }

    void keepRoundTrips(double sumUs, double count)
    {
        roundTripSumUs += sumUs;
        roundTrips += count;
    }

    void add(const Tally& other)
    {
        latenessUs.insert(latenessUs.end(), other.latenessUs.cbegin(), other.latenessUs.cend());
        keepRoundTrips(other.roundTripSumUs, other.roundTrips);
    }
};

/// When ticks were due, of one device. Ticks that pass until a result are served by none.
class Ticks
{
public:
    void begin(int intervalMs)
    {
        m_intervalUs = qint64{1000} * intervalMs;
        m_startUs = nowUs();
    }

    /// How late the result that has just come is, from when the tick was due.
    qint64 result()
    {
        const qint64 now = nowUs() - m_startUs;
        qint64 late = now - m_next * m_intervalUs;
        if (late < 0) { // the tick that was due at the end of the result before
            late += m_intervalUs;
        }
        m_next = now / m_intervalUs + 1;
        return late;
    }

private:
    qint64 m_intervalUs = 0;
    qint64 m_startUs = 0;
    qint64 m_next = 0;
};

/// One device, as a client reads or listens to it.
class Client
{
public:
    Client(const Job& job, Tally& tally) : m_job(job), m_tally(tally) { }
    virtual ~Client() = default;
    Q_DISABLE_COPY(Client)

    virtual void open(const std::function<void()>& onOpen) = 0;
    virtual void begin() = 0;

protected:
    void done(int value)
    {
        if (value != firstRegister) {
            fail(QStringLiteral("a wrong reply"));
        }
        if (m_job.intervalMs > 0) {
            m_tally.keepLateness(m_ticks.result());
        }
        m_tally.orders.fetch_add(1, std::memory_order_relaxed);
    }

    const Job& m_job;
    Tally& m_tally;
    Ticks m_ticks;
};

/// Orders to a plug-in object of the loaded module.
std::unique_ptr<Client> makeDriverClient(const Job& job, Tally& tally);
/// Requests to the TCP client of Qt Serial Bus, and a timer.
std::unique_ptr<Client> makeQtClient(const Job& job, Tally& tally);

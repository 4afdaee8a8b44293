// Many devices by libmodbus, which blocks: a thread for each. See window.h.

#include "window.h"

#include <cerrno>
#include <modbus.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

/// Of one thread.
struct alignas(64) Counter
{
    std::atomic<std::uint64_t> reads{0};
};

modbus_t* connected(int port)
{
    modbus_t* context = modbus_new_tcp("127.0.0.1", port);
    modbus_set_slave(context, 0);
    modbus_set_response_timeout(context, 10, 0); // a thousand threads wait for each other
    modbus_set_byte_timeout(context, 10, 0);
    if (modbus_connect(context) != 0) {
        fail(modbus_strerror(errno));
    }
    return context;
}

void readForEver(modbus_t* context, Counter& counter)
{
    std::array<std::uint16_t, registersRead> values;
    for (;;) {
        if (modbus_read_registers(context, firstRegister, registersRead, values.data())
                != registersRead
            || values[0] != firstRegister) {
            fail(modbus_strerror(errno));
        }
        counter.reads.fetch_add(1, std::memory_order_relaxed);
    }
}

std::uint64_t sum(const std::vector<std::unique_ptr<Counter>>& counters)
{
    std::uint64_t reads = 0;
    for (const auto& counter : counters) {
        reads += counter->reads;
    }
    return reads;
}

void sleepFor(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

} // namespace

int main(int argc, char** argv)
{
    const Job job = jobFrom(argc, argv);
    std::vector<modbus_t*> contexts(static_cast<std::size_t>(job.devices));
    std::generate(contexts.begin(), contexts.end(), [&] { return connected(job.port); });
    std::vector<std::unique_ptr<Counter>> counters;
    for (modbus_t* context : contexts) {
        counters.push_back(std::make_unique<Counter>());
        std::thread(readForEver, context, std::ref(*counters.back())).detach();
    }
    while (std::any_of(counters.begin(), counters.end(),
                       [](const auto& counter) { return counter->reads == 0; })) {
        sleepFor(0.01);
    }
    sleepFor(warmUpSeconds);
    const Window window(sum(counters));
    sleepFor(job.seconds);
    window.print(sum(counters));
    std::_Exit(0);
}

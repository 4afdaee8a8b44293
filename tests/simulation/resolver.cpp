#include "resolver.h"

#include "network.h"
#include "world.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <list>

namespace {

constexpr int firstPort = 502;
constexpr qint64 quickUs = 200;
constexpr qint64 slowUs = 8000000;

/// A thread that has not come to anything yet.
struct Thread
{
    void* (*run)(void*);
    void* argument;
};

std::list<Thread>& threads()
{
    static std::list<Thread> all;
    return all;
}

void runFirst()
{
    if (!threads().empty()) {
        const Thread thread = threads().front();
        threads().pop_front();
        thread.run(thread.argument);
    }
}

template <typename Function>
Function ofTheSystem(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int numeric(const char* address, const addrinfo* wanted, addrinfo** found)
{
    static const auto lookUp = ofTheSystem<decltype(&getaddrinfo)>("getaddrinfo");
    addrinfo plain = *wanted;
    plain.ai_flags = AI_NUMERICHOST;
    return lookUp(address, nullptr, &plain, found);
}

// "deviceSEED-NUMBER"
int named(const char* name, const addrinfo* wanted, addrinfo** found)
{
    Network::current()->lookUp(
        static_cast<quint16>(firstPort + std::atoi(std::strchr(name, '-') + 1)));
    Random& chance = World::current()->chance();
    const bool isCalm = World::current()->isCalm();
    if (!isCalm && chance.oneIn(6)) {
        return EAI_AGAIN;
    }
    addrinfo* own = nullptr;
    const int error = numeric("10.0.0.1", wanted, &own);
    *found = own;
    if (error == 0 && !isCalm && chance.oneIn(4)) {
        numeric(chance.oneIn(2) ? "10.98.0.1" : "10.99.0.1", wanted, found);
        (*found)->ai_next = own;
    }
    return error;
}

} // namespace

int Resolver::lookUp(const char* name, const char* service, const addrinfo* wanted,
                     addrinfo** found)
{
    static const auto lookUp = ofTheSystem<decltype(&getaddrinfo)>("getaddrinfo");
    if (World::current() == nullptr) {
        return lookUp(name, service, wanted, found);
    }
    const bool isNumeric = (wanted->ai_flags & AI_NUMERICHOST) != 0;
    return isNumeric ? numeric(name, wanted, found) : named(name, wanted, found);
}

int Resolver::startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument)
{
    static const auto start = ofTheSystem<decltype(&pthread_create)>("pthread_create");
    World* world = World::current();
    if (world == nullptr) {
        return start(thread, attributes, run, argument);
    }
    threads().push_back({run, argument});
    world->inside(world->chance().spread(quickUs, world->isCalm() ? 4 * quickUs : slowUs),
                  runFirst);
    return 0;
}

void Resolver::endAll()
{
    while (!threads().empty()) {
        runFirst();
    }
}

#include <plugin_management/socket_poll_p.h>

#include <sys/epoll.h>
#include <unistd.h>

#include <array>

namespace {

constexpr std::size_t readyAtOnce = 64;

std::size_t index(int descriptor) { return static_cast<std::size_t>(descriptor); }

} // namespace

SocketPoll::SocketPoll() : m_poll(::epoll_create1(EPOLL_CLOEXEC))
{
    if (m_poll < 0) {
        qFatal("no descriptor left to wait for sockets with");
    }
}

SocketPoll::~SocketPoll() { ::close(m_poll); }

bool SocketPoll::control(int operation, int descriptor, quint32 events) const
{
    epoll_event event{};
    event.events = events;
    event.data.u64 =
        quint64{m_watched[index(descriptor)].generation} << 32 | static_cast<quint32>(descriptor);
    return ::epoll_ctl(m_poll, operation, descriptor, &event) == 0;
}

bool SocketPoll::watch(int descriptor, quint32 events, const Handler& handler)
{
    if (index(descriptor) >= m_watched.size()) {
        m_watched.resize(index(descriptor) + 1);
    }
    m_watched[index(descriptor)] = {handler, ++m_generation};
    if (!control(EPOLL_CTL_ADD, descriptor, events)) {
        m_watched[index(descriptor)] = {};
        return false;
    }
    m_newest = descriptor;
    ++m_count;
    return true;
}

bool SocketPoll::change(int descriptor, quint32 events)
{
    return control(EPOLL_CTL_MOD, descriptor, events);
}

void SocketPoll::unwatch(int descriptor)
{
    control(EPOLL_CTL_DEL, descriptor, 0);
    m_watched[index(descriptor)] = {};
    --m_count;
}

int SocketPoll::wait(int limitMs)
{
    std::array<epoll_event, readyAtOnce> ready;
    const int count = ::epoll_wait(m_poll, ready.data(), static_cast<int>(ready.size()), limitMs);
    int called = 0;
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = ready[index(i)];
        called += call(static_cast<int>(event.data.u64 & 0xFFFFFFFF),
                       static_cast<quint32>(event.data.u64 >> 32), event.events);
    }
    return called;
}

int SocketPoll::callReady()
{
    if (m_count == 1 && !m_watched[index(m_newest)].handler.empty()) {
        return call(m_newest, m_watched[index(m_newest)].generation, EPOLLIN);
    }
    return wait(0);
}

// What an earlier handler did may have ended this descriptor, and given its number to another.
int SocketPoll::call(int descriptor, quint32 generation, quint32 events)
{
    const Watched& watched = m_watched[index(descriptor)];
    if (watched.generation != generation || watched.handler.empty()) {
        return 0;
    }
    const Handler handler = watched.handler;
    handler(events);
    return 1;
}

bool SocketPoll::isAnyReady() const
{
    epoll_event event;
    return ::epoll_wait(m_poll, &event, 1, 0) > 0;
}

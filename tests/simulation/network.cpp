#include "network.h"

#include "world.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr int inboxLimit = 64 * 1024;
constexpr int noRoom = 3000; // one in so many sends finds none
constexpr qint64 silentConnectUs = 127000000; // what a system takes to give up

Network* theNetwork = nullptr;

} // namespace

Network::Network(quint64 seed) : m_random(seed, 'N') { theNetwork = this; }

Network::~Network() { theNetwork = nullptr; }

Network* Network::current() { return theNetwork; }

std::size_t Network::place(int descriptor)
{
    return static_cast<std::size_t>(descriptor - firstDescriptor);
}

Network::Socket* Network::socket(int descriptor) const
{
    return place(descriptor) < m_sockets.size() ? m_sockets[place(descriptor)].get() : nullptr;
}

Network::Socket* Network::socketOf(quint64 link) const
{
    const auto it = m_links.find(link);
    return it != m_links.end() ? socket(it->second) : nullptr;
}

void Network::listen(quint16 port, Listener* listener, Watcher* watcher)
{
    m_ports[port] = {listener, watcher};
}

void Network::lookUp(quint16 port) { m_ports.at(port).watcher->looksUp(); }

int Network::openCount(quint16 port) const
{
    return static_cast<int>(
        std::count_if(m_sockets.begin(), m_sockets.end(), [port](const auto& socket) {
            return socket != nullptr && socket->port == port;
        }));
}

int Network::openCount() const
{
    return static_cast<int>(std::count_if(m_sockets.begin(), m_sockets.end(),
                                          [](const auto& socket) { return socket != nullptr; }));
}

// --- what is outside does ---

void Network::accept(quint64 link)
{
    if (Socket* found = socketOf(link)) {
        found->state = Socket::State::Connected;
    }
}

void Network::refuse(quint64 link, int error)
{
    if (Socket* found = socketOf(link)) {
        found->state = Socket::State::Failed;
        found->error = error;
    }
}

void Network::deliver(quint64 link, const QByteArray& bytes)
{
    Socket* found = socketOf(link);
    if (found != nullptr && !found->hasEnded && !found->wasReset) {
        found->inbox += bytes;
    }
}

bool Network::hasRoom(quint64 link) const
{
    const Socket* found = socketOf(link);
    return found != nullptr && found->inbox.size() < inboxLimit;
}

void Network::end(quint64 link)
{
    if (Socket* found = socketOf(link)) {
        found->hasEnded = true;
    }
}

// What had not been read is gone.
void Network::reset(quint64 link)
{
    if (Socket* found = socketOf(link)) {
        found->wasReset = true;
        found->inbox.clear();
    }
}

// --- what the process asks of the system ---

int Network::openSocket()
{
    const auto isFree = [this](std::size_t at) {
        const int descriptor = firstDescriptor + static_cast<int>(at);
        return !isPoll(descriptor) && (at >= m_sockets.size() || m_sockets[at] == nullptr);
    };
    std::size_t at = 0;
    while (!isFree(at)) {
        ++at;
    }
    m_sockets.resize(std::max(m_sockets.size(), at + 1));
    m_sockets[at] = std::make_unique<Socket>();
    return firstDescriptor + static_cast<int>(at);
}

int Network::openPoll()
{
    const int descriptor = openSocket();
    m_sockets[place(descriptor)].reset();
    m_polls.resize(std::max(m_polls.size(), place(descriptor) + 1));
    m_polls[place(descriptor)] = std::make_unique<Poll>();
    return descriptor;
}

int Network::connectSocket(int descriptor, quint32 address, quint16 port)
{
    Socket& opened = *socket(descriptor);
    const Port& there = begin(opened, port);
    if (address == emptyAddress) {
        opened.state = Socket::State::Failed;
        there.watcher->loses(opened.link);
        opened.isTold = true;
        errno = EHOSTUNREACH;
        return -1;
    }
    m_links[opened.link] = descriptor;
    if (address == deadAddress) {
        World::current()->outside(silentConnectUs,
                                  [this, link = opened.link] { refuse(link, ETIMEDOUT); });
    } else {
        there.listener->asked(opened.link);
    }
    errno = EINPROGRESS;
    return -1;
}

const Network::Port& Network::begin(Socket& socket, quint16 port)
{
    socket.link = ++m_nextLink;
    socket.port = port;
    socket.state = Socket::State::Connecting;
    const Port& there = portOf(socket);
    there.watcher->attempts(socket.link);
    return there;
}

int Network::openLine(quint16 port)
{
    const int descriptor = openSocket();
    Socket& opened = *socket(descriptor);
    opened.isLine = true;
    const Port& there = begin(opened, port);
    m_links[opened.link] = descriptor;
    there.listener->asked(opened.link);
    const int error = takeError(descriptor);
    if (error != 0) {
        close(descriptor);
        errno = error;
        return -1;
    }
    return descriptor;
}

int Network::takeError(int descriptor)
{
    Socket& found = *socket(descriptor);
    const int error = std::exchange(found.error, 0);
    if (error != 0) {
        tellLoss(found);
    } else if (found.state == Socket::State::Connected) {
        portOf(found).watcher->opens(found.link);
    }
    return error;
}

void Network::tellLoss(Socket& socket)
{
    if (!std::exchange(socket.isTold, true)) {
        portOf(socket).watcher->loses(socket.link);
    }
}

long Network::receive(int descriptor, char* data, std::size_t size)
{
    Socket& found = *socket(descriptor);
    if (!found.inbox.isEmpty()) {
        const int count = std::min(found.inbox.size(), static_cast<int>(size));
        std::memcpy(data, found.inbox.constData(), static_cast<std::size_t>(count));
        found.inbox.remove(0, count);
        found.vainReads = 0;
        portOf(found).watcher->receives(found.link, QByteArray::fromRawData(data, count));
        return count;
    }
    countVainRead(found);
    if (found.wasReset || found.hasEnded) {
        tellLoss(found);
        errno = ECONNRESET;
        return found.wasReset ? -1 : 0;
    }
    errno = EAGAIN;
    return -1;
}

// More than any number of silent requests would have.
void Network::countVainRead(Socket& socket)
{
    constexpr int most = 1000;
    if (++socket.vainReads == most) {
        World::current()->fail(-1, QStringLiteral("a link is read without end"));
    }
}

long Network::send(int descriptor, const char* data, std::size_t size)
{
    Socket& found = *socket(descriptor);
    if (found.wasReset) {
        tellLoss(found);
        errno = EPIPE;
        return -1;
    }
    if (!World::current()->isCalm() && m_random.oneIn(noRoom)) {
        errno = EAGAIN;
        return -1;
    }
    const QByteArray bytes(data, static_cast<int>(size));
    portOf(found).listener->sent(found.link, bytes);
    portOf(found).watcher->sends(found.link, bytes);
    return static_cast<long>(size);
}

quint32 Network::readiness(const Socket& socket)
{
    switch (socket.state) {
    case Socket::State::Connected:
        return EPOLLOUT
            | (socket.inbox.isEmpty() && !socket.hasEnded && !socket.wasReset ? 0U : EPOLLIN)
            | (socket.wasReset ? quint32{EPOLLHUP} | EPOLLERR : 0U)
            | (socket.isLine && socket.hasEnded ? quint32{EPOLLHUP} : 0U);
    case Socket::State::Failed:
        return quint32{EPOLLOUT} | EPOLLERR | EPOLLHUP;
    default:
        return 0;
    }
}

quint32 Network::ready(int descriptor, quint32 events) const
{
    const Socket* found = socket(descriptor);
    return found != nullptr ? readiness(*found) & (events | EPOLLERR | EPOLLHUP) : 0;
}

int Network::waiting(int descriptor) const { return socket(descriptor)->inbox.size(); }

void Network::close(int descriptor)
{
    if (isPoll(descriptor)) {
        m_polls[place(descriptor)].reset();
        return;
    }
    const std::unique_ptr<Socket> closed = std::move(m_sockets[place(descriptor)]);
    for (const auto& poll : m_polls) {
        if (poll != nullptr) {
            control(firstDescriptor + static_cast<int>(&poll - m_polls.data()), EPOLL_CTL_DEL,
                    descriptor, nullptr);
        }
    }
    if (closed->link == 0) {
        return;
    }
    const Port& there = portOf(*closed);
    there.watcher->closes(closed->link, closed->inbox.size());
    if (m_links.erase(closed->link) > 0) {
        there.listener->left(closed->link);
    }
}

int Network::control(int poll, int operation, int descriptor, const epoll_event* event)
{
    std::vector<Watched>& watched = m_polls[place(poll)]->watched;
    const auto it = std::find_if(watched.begin(), watched.end(), [descriptor](const Watched& one) {
        return one.descriptor == descriptor;
    });
    if (operation == EPOLL_CTL_ADD) {
        watched.push_back({descriptor, event->events, event->data.u64});
    } else if (it == watched.end()) {
        errno = ENOENT;
        return -1;
    } else if (operation == EPOLL_CTL_MOD) {
        it->events = event->events;
        it->data = event->data.u64;
    } else {
        watched.erase(it);
    }
    return 0;
}

bool Network::isPoll(int descriptor) const
{
    return place(descriptor) < m_polls.size() && m_polls[place(descriptor)] != nullptr;
}

bool Network::isPollReady(int poll) const
{
    const std::vector<Watched>& watched = m_polls[place(poll)]->watched;
    return std::any_of(watched.begin(), watched.end(), [this](const Watched& one) {
        return ready(one.descriptor, one.events) != 0;
    });
}

int Network::ready(int poll, epoll_event* events, int size)
{
    std::vector<Watched>& watched = m_polls[place(poll)]->watched;
    int count = 0;
    for (std::size_t i = 0; i < watched.size() && count < size; ++i) {
        if (ready(watched[i].descriptor, watched[i].events) != 0) {
            events[count].events = readiness(*socket(watched[i].descriptor));
            events[count++].data.u64 = watched[i].data;
        }
    }
    if (!watched.empty()) { // the system goes round
        std::rotate(watched.begin(), watched.begin() + 1, watched.end());
    }
    return count;
}

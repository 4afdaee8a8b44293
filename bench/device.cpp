// The device of the benchmarks: as little as answers reads of holding registers, for any number of
// connections, on one thread. Register n holds n. Prints "listening on ADDRESS:PORT".

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t requestSize = 12;
constexpr int headerSize = 9;

using Frame = std::array<std::uint8_t, 300>;

std::uint16_t wordAt(const std::uint8_t* bytes)
{
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

void putWord(std::uint8_t* bytes, unsigned value)
{
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

std::size_t buildReply(const std::uint8_t* request, Frame& reply)
{
    const unsigned first = wordAt(request + 8);
    const unsigned quantity = wordAt(request + 10) <= 125 ? wordAt(request + 10) : 0;
    std::memcpy(reply.data(), request, 8);
    putWord(reply.data() + 4, 3 + 2 * quantity);
    reply[8] = static_cast<std::uint8_t>(2 * quantity);
    for (unsigned i = 0; i < quantity; ++i) {
        putWord(reply.data() + headerSize + std::size_t{2} * i, first + i);
    }
    return headerSize + 2 * std::size_t{quantity};
}

int listenOnLoopback()
{
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(server, generic, size) != 0 || ::listen(server, 2048) != 0
        || ::getsockname(server, generic, &size) != 0) {
        std::perror("bench_device");
        return -1;
    }
    std::printf("listening on 127.0.0.1:%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return server;
}

void allowManyDescriptors()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

void watch(int poll, int fd)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    ::epoll_ctl(poll, EPOLL_CTL_ADD, fd, &event);
}

void acceptOne(int poll, int server)
{
    const int client = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        std::perror("bench_device: a connection cannot be accepted");
        std::exit(1);
    }
    const int on = 1;
    ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    watch(poll, client);
}

// Clients send whole requests, one at a time.
void serve(int client)
{
    std::array<std::uint8_t, 512> request;
    Frame reply;
    const ssize_t size = ::recv(client, request.data(), request.size(), 0);
    if (size < static_cast<ssize_t>(requestSize)) {
        ::close(client);
        return;
    }
    const std::size_t length = buildReply(request.data(), reply);
    if (::send(client, reply.data(), length, MSG_NOSIGNAL) < 0) {
        ::close(client);
    }
}

} // namespace

int main()
{
    allowManyDescriptors();
    const int server = listenOnLoopback();
    if (server < 0) {
        return 1;
    }
    const int poll = ::epoll_create1(EPOLL_CLOEXEC);
    watch(poll, server);
    std::array<epoll_event, 64> events;
    for (;;) {
        const int count = ::epoll_wait(poll, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const int fd = events[static_cast<std::size_t>(i)].data.fd;
            if (fd == server) {
                acceptOne(poll, server);
            } else {
                serve(fd);
            }
        }
    }
}

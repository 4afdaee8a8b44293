// The calls that the runtime makes of the system, answered by the world. The program exports them,
// so the libraries that it loads find these before those of the system. So the runtime and the
// module are the very files that hosts load, and need no door for tests. What is not the world's
// goes on to the system.

#include "network.h"
#include "plan.h"
#include "resolver.h"
#include "world.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

namespace {

constexpr qint64 nsPerUs = 1000;
constexpr qint64 usPerSecond = 1000000;

bool isOurs(int descriptor) { return Network::current() != nullptr && Network::owns(descriptor); }

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const World* world = World::current();
    if (clock != CLOCK_MONOTONIC || world == nullptr) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    time->tv_sec = world->nowUs() / usPerSecond;
    time->tv_nsec = world->nowUs() % usPerSecond * nsPerUs;
    return 0;
}

// What is longer is a seed for keys, drawn by TLS for the whole process whenever it likes. No world
// depends on keys, as all that is sent is as long with any.
ssize_t getrandom(void* to, size_t size, unsigned flags)
{
    World* world = World::current();
    quint64 drawn = 0;
    if (world == nullptr || size > sizeof(drawn)) {
        return syscall(SYS_getrandom, to, size, flags);
    }
    drawn = world->chance().next();
    std::memcpy(to, &drawn, size);
    return static_cast<ssize_t>(size);
}

int socket(int family, int type, int protocol) noexcept
{
    const bool isOfTheWorld = Network::current() != nullptr && family == AF_INET;
    return isOfTheWorld ? Network::current()->openSocket()
                        : static_cast<int>(syscall(SYS_socket, family, type, protocol));
}

int connect(int descriptor, const sockaddr* address, socklen_t size)
{
    if (!isOurs(descriptor)) {
        return static_cast<int>(syscall(SYS_connect, descriptor, address, size));
    }
    sockaddr_in to{};
    std::memcpy(&to, address, sizeof(to));
    return Network::current()->connectSocket(descriptor, ntohl(to.sin_addr.s_addr),
                                             ntohs(to.sin_port));
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) noexcept
{
    return isOurs(descriptor)
        ? 0
        : static_cast<int>(syscall(SYS_setsockopt, descriptor, level, option, value, size));
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* size) noexcept
{
    if (!isOurs(descriptor)) {
        return static_cast<int>(syscall(SYS_getsockopt, descriptor, level, option, value, size));
    }
    const int error = Network::current()->takeError(descriptor);
    std::memcpy(value, &error, sizeof(error));
    return 0;
}

ssize_t recv(int descriptor, void* data, size_t size, int flags)
{
    return isOurs(descriptor)
        ? Network::current()->receive(descriptor, static_cast<char*>(data), size)
        : syscall(SYS_recvfrom, descriptor, data, size, flags, nullptr, nullptr);
}

ssize_t send(int descriptor, const void* data, size_t size, int flags)
{
    return isOurs(descriptor)
        ? Network::current()->send(descriptor, static_cast<const char*>(data), size)
        : syscall(SYS_sendto, descriptor, data, size, flags, nullptr, 0);
}

// The header says that the system only writes here, which is not so.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
int poll(pollfd* asked, nfds_t count, int limitMs)
{
    if (count != 1 || !isOurs(asked->fd)) {
        return static_cast<int>(syscall(SYS_poll, asked, count, limitMs));
    }
    const bool isPoll = Network::current()->isPoll(asked->fd);
    if (isPoll) { // looked at again and again, and time goes on meanwhile
        World::current()->stopProcess(1);
    }
    const quint32 ready = isPoll
        ? (Network::current()->isPollReady(asked->fd) ? quint32{EPOLLIN} : 0)
        : Network::current()->ready(asked->fd, static_cast<quint32>(asked->events));
    asked->revents = static_cast<short>(ready); // the bits are those of epoll
    return ready != 0 ? 1 : 0;
}
#pragma GCC diagnostic pop

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (!isOurs(descriptor)) {
        return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
    }
    if (request == FIONREAD) {
        const int waiting = Network::current()->waiting(descriptor);
        std::memcpy(argument, &waiting, sizeof(waiting));
        return 0;
    }
    errno = ENOTTY;
    return request == TIOCEXCL || request == TIOCNXCL ? 0 : -1;
}

// The file of a serial line.
int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    const quint16 port = Network::current() != nullptr ? Plan::serialPort(path) : quint16{0};
    return port != 0 ? Network::current()->openLine(port)
                     : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

ssize_t read(int descriptor, void* data, size_t size)
{
    return isOurs(descriptor)
        ? Network::current()->receive(descriptor, static_cast<char*>(data), size)
        : syscall(SYS_read, descriptor, data, size);
}

ssize_t write(int descriptor, const void* data, size_t size)
{
    return isOurs(descriptor)
        ? Network::current()->send(descriptor, static_cast<const char*>(data), size)
        : syscall(SYS_write, descriptor, data, size);
}

// What waits stays, so that it is seen who closes a line on a reply.
int tcflush(int /*descriptor*/, int /*queue*/) noexcept { return 0; }

int tcgetattr(int /*descriptor*/, termios* settings) noexcept
{
    std::memset(settings, 0, sizeof(*settings));
    return 0;
}

int tcsetattr(int /*descriptor*/, int /*when*/, const termios* /*settings*/) noexcept { return 0; }

int close(int descriptor)
{
    if (!isOurs(descriptor)) {
        return static_cast<int>(syscall(SYS_close, descriptor));
    }
    Network::current()->close(descriptor);
    return 0;
}

int epoll_create1(int flags) noexcept
{
    return Network::current() != nullptr ? Network::current()->openPoll()
                                         : static_cast<int>(syscall(SYS_epoll_create1, flags));
}

int epoll_ctl(int poll, int operation, int descriptor, epoll_event* event) noexcept
{
    return isOurs(poll)
        ? Network::current()->control(poll, operation, descriptor, event)
        : static_cast<int>(syscall(SYS_epoll_ctl, poll, operation, descriptor, event));
}

int epoll_wait(int poll, epoll_event* events, int size, int limitMs)
{
    return isOurs(poll) ? Network::current()->ready(poll, events, size)
                        : static_cast<int>(syscall(SYS_epoll_wait, poll, events, size, limitMs));
}

int getaddrinfo(const char* name, const char* service, const addrinfo* wanted, addrinfo** found)
{
    return Resolver::lookUp(name, service, wanted, found);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept
{
    return Resolver::startThread(thread, attributes, run, argument);
}

} // extern "C"

// The least that a program with one thread can do to read many devices, read after read: epoll,
// recv and send, and a look at one value. See window.h.

#include "window.h"

#include <sys/epoll.h>

#include <optional>

namespace {

std::uint64_t reads = 0;

void ask(int fd)
{
    if (::send(fd, readRequest.data(), readRequest.size(), MSG_NOSIGNAL)
        != static_cast<ssize_t>(readRequest.size())) {
        fail("a request did not leave");
    }
}

void take(int fd)
{
    std::array<std::uint8_t, 300> reply;
    if (::recv(fd, reply.data(), reply.size(), 0) != replySize || reply[10] != firstRegister) {
        fail("a wrong reply");
    }
    ++reads;
}

void turn(int poll)
{
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(poll, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < count; ++i) {
        const int fd = events[static_cast<std::size_t>(i)].data.fd;
        take(fd);
        ask(fd);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Job job = jobFrom(argc, argv);
    const int poll = ::epoll_create1(0);
    for (int i = 0; i < job.devices; ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = connectToDevice(job.port);
        ::epoll_ctl(poll, EPOLL_CTL_ADD, event.data.fd, &event);
        ask(event.data.fd);
    }
    const Window warmUp(0);
    std::optional<Window> window;
    while (!window || !window->isOver(job.seconds)) {
        turn(poll);
        if (!window && warmUp.isOver(warmUpSeconds)) {
            window.emplace(reads);
        }
    }
    window->print(reads);
    std::_Exit(0);
}

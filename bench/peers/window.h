#pragma once

#include "usage.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// What the peers that read many devices without Qt have in common. Each reads 10 registers from 100
// of every device, read after read, and takes the arguments PORT DEVICES SECONDS.

constexpr int firstRegister = 100;
constexpr int registersRead = 10;
constexpr std::array<std::uint8_t, 12> readRequest{
    0, 1, 0, 0, 0, 6, 0, 3, 0, firstRegister, 0, registersRead};
constexpr int replySize = 9 + 2 * registersRead;
constexpr double warmUpSeconds = 0.3;

struct Job
{
    int port;
    int devices;
    double seconds;
};

[[noreturn]] inline void fail(const char* why)
{
    std::fprintf(stderr, "%s\n", why);
    std::_Exit(1);
}

inline Job jobFrom(int argc, char** argv)
{
    const Job job{argc == 4 ? std::atoi(argv[1]) : 0, argc == 4 ? std::atoi(argv[2]) : 0,
                  argc == 4 ? std::atof(argv[3]) : 0};
    if (job.port < 1 || job.devices < 1 || job.seconds <= 0) {
        fail("usage: PROGRAM PORT DEVICES SECONDS");
    }
    return job;
}

inline double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

inline int connectToDevice(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        fail("no connection to the device");
    }
    return fd;
}

/// What was done from a moment on.
class Window
{
public:
    explicit Window(std::uint64_t readsBefore) : m_readsBefore(readsBefore) { }

    bool isOver(double seconds) const { return now() - m_began >= seconds; }

    void print(std::uint64_t reads) const
    {
        const auto count = static_cast<double>(reads - m_readsBefore);
        std::printf("{\"orders\":%.0f,\"ordersPerSecond\":%.1f,\"processorUsPerOrder\":%.4f}\n",
                    count, count / (now() - m_began), (processorUs() - m_processorBefore) / count);
        std::fflush(stdout);
    }

private:
    std::uint64_t m_readsBefore;
    double m_began = now();
    double m_processorBefore = processorUs();
};

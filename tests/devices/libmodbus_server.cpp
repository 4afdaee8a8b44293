// A Modbus TCP device on libmodbus: libmodbus-server [PORT], any free port by default. It holds
// what device-simulator holds, but nothing of it moves, and it answers whatever unit id it is asked
// for.

#include <modbus.h>

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int RegisterCount = 9999;

using Context = std::unique_ptr<modbus_t, decltype(&modbus_free)>;
using Mapping = std::unique_ptr<modbus_mapping_t, decltype(&modbus_mapping_free)>;

Mapping demonstrationRegisters()
{
    Mapping map(modbus_mapping_new(RegisterCount, RegisterCount, RegisterCount, RegisterCount),
                &modbus_mapping_free);
    for (int i = 0; i < RegisterCount; ++i) {
        map->tab_bits[i] = i % 3 == 0;
        map->tab_input_bits[i] = i % 5 == 0;
    }
    for (int i = 0; i < 10; ++i) {
        map->tab_registers[100 + i] = static_cast<uint16_t>((2 * i + 1) * 256 + 2 * i + 2);
    }
    map->tab_input_registers[200] = 7;
    map->tab_input_registers[201] = 65535;
    return map;
}

int portOf(int listener)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

bool serve(modbus_t* context, modbus_mapping_t* map, int client)
{
    std::array<uint8_t, MODBUS_TCP_MAX_ADU_LENGTH> request{};
    modbus_set_socket(context, client);
    const int length = modbus_receive(context, request.data());
    if (length > 0) {
        modbus_reply(context, request.data(), length, map);
    }
    return length >= 0;
}

void serveAll(modbus_t* context, modbus_mapping_t* map, int listener)
{
    std::vector<pollfd> sockets{{listener, POLLIN, 0}};
    while (poll(sockets.data(), sockets.size(), -1) > 0) {
        for (std::size_t i = sockets.size() - 1; i > 0; --i) {
            if (sockets[i].revents != 0 && !serve(context, map, sockets[i].fd)) {
                close(sockets[i].fd);
                sockets.erase(sockets.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (sockets[0].revents != 0) {
            sockets.push_back({accept(listener, nullptr, nullptr), POLLIN, 0});
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Context context(modbus_new_tcp("127.0.0.1", argc > 1 ? std::atoi(argv[1]) : 0),
                          &modbus_free);
    const Mapping map = demonstrationRegisters();
    const int listener = modbus_tcp_listen(context.get(), 8);
    if (listener < 0) {
        std::perror("libmodbus-server");
        return 1;
    }
    std::printf("listening on 127.0.0.1:%d\n", portOf(listener));
    std::fflush(stdout);
    serveAll(context.get(), map.get(), listener);
    return 0;
}

// Reads through libmodbus, as proof of what another program wrote:
// libmodbus-client PORT coils|holding REGISTER COUNT prints the values in one line.

#include <modbus.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

bool readCoils(modbus_t* context, int start, std::vector<uint16_t>& values)
{
    std::vector<uint8_t> bits(values.size());
    const int count = modbus_read_bits(context, start, static_cast<int>(bits.size()), bits.data());
    values.assign(bits.begin(), bits.end());
    return count >= 0;
}

bool readHolding(modbus_t* context, int start, std::vector<uint16_t>& values)
{
    return modbus_read_registers(context, start, static_cast<int>(values.size()), values.data())
        >= 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        return 2;
    }
    modbus_t* context = modbus_new_tcp("127.0.0.1", std::atoi(argv[1]));
    const auto read = std::string(argv[2]) == "coils" ? readCoils : readHolding;
    std::vector<uint16_t> values(std::strtoul(argv[4], nullptr, 10));
    // Unit 0, because the simulated device is silent to any other.
    const bool ok = modbus_set_slave(context, 0) == 0 && modbus_connect(context) == 0
        && read(context, std::atoi(argv[3]), values);
    if (!ok) {
        std::fprintf(stderr, "libmodbus-client: %s\n", modbus_strerror(errno));
        values.clear();
    }
    for (const uint16_t value : values) {
        std::printf("%d ", value);
    }
    modbus_close(context);
    modbus_free(context);
    return ok ? 0 : 1;
}

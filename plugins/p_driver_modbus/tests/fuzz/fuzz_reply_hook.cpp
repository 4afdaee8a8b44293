// Any request by any worker function, then any reply to it.

#include "../fake_socket.h"
#include "../recording_host.h"
#include "d_worker_modbus.h"
#include "fuzz_input.h"

namespace {

class OpenWorker : public DWorkerModbus
{
public:
    OpenWorker() : DWorkerModbus(QString()) { m_socket = &m_fakeSocket; }
    using DWorkerModbus::cbReply;

private:
    FakeSocket m_fakeSocket;
};

} // namespace

int LLVMFuzzerTestOneInput(const quint8* data, size_t size)
{
    static const auto silent = qInstallMessageHandler([](auto, const auto&, const auto&) {});
    static const char* const functions[] = {
        "modbus_read_holdingRegisters", "modbus_write_coilsRegister", "modbus_write_singleRegister",
        "modbus_write_multipleRegisters", "modbus_device_information"};
    Q_UNUSED(silent)
    FuzzInput input(data, size);
    const QString function = functions[input.byte() % std::size(functions)];
    ParameterMap parameters;
    for (const char* key : {"funcCode", "register", "dataSize", "data", "keepAliveFunction"}) {
        if (input.byte() % 4 != 0) {
            parameters.insert(key, input.value());
        }
    }
    recording_host::answers.orderParameters = parameters;
    OpenWorker worker;
    recording_host::callFunction(function, 1, parameters);
    recording_host::takeCalls();
    const ParameterMap reply = worker.cbReply(input.rest());
    if (reply.size() != (reply["doneOk"].toBool() ? reply.contains("info") ? 4 : 2 : 1)) {
        qFatal("a reply map of no known form");
    }
    return 0;
}

// The codec alone: frames built and checked by it, by the classes of Qt Serial Bus, and copied.
// Takes the options of Google Benchmark. Under callgrind with --instr-atstart=no it writes one dump
// per case instead, of 1000 calls. A case is called "what/who".

#include "instrumentation.h"
#include "modbus_codec.h"

#include <QByteArray>
#include <QDataStream>
#include <QModbusPdu>
#include <QVector>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int repetitions = 1000;
constexpr quint8 unit = 1;
constexpr quint16 address = 100;
constexpr quint16 quantity = 10;

std::array<quint8, 300> buffer;
std::array<quint8, std::size_t{2} * quantity> data;

struct Case
{
    std::string name;
    std::function<void()> callOften;
};

std::vector<Case> cases;

template <typename Function>
void add(const char* what, const char* who, Function function)
{
    const std::string name = std::string(what) + "/" + who;
    benchmark::RegisterBenchmark(name.c_str(), [function](benchmark::State& state) {
        for (auto _ : state) {
            function();
            benchmark::ClobberMemory();
        }
    });
    cases.push_back({name, [function] {
                         for (int i = 0; i < repetitions; ++i) {
                             function();
                             benchmark::ClobberMemory();
                         }
                     }});
}

// The bytes of a frame, moved by somebody who knows nothing of them.
void addCopy(const char* what, std::size_t size)
{
    add(what, "memcpy", [size] {
        static std::array<quint8, 300> source;
        std::memcpy(buffer.data(), source.data(), size);
    });
}

// As Qt Serial Bus' TCP client puts a request on the wire.
QByteArray frameOf(const QModbusRequest& request)
{
    QByteArray frame;
    QDataStream stream(&frame, QIODevice::WriteOnly);
    stream << quint16{0xAABB} << quint16{0} << static_cast<quint16>(request.size() + 1) << unit
           << request;
    return frame;
}

template <typename Build, typename Request>
void addRequest(const char* what, Build build, Request request)
{
    add(what, "codec", [build] { benchmark::DoNotOptimize(build(FRAMING_TCP)); });
    add(what, "pdu", [request] {
        QModbusRequest made = request();
        benchmark::DoNotOptimize(made);
    });
    add(what, "frame", [request] {
        QByteArray made = frameOf(request());
        benchmark::DoNotOptimize(made);
    });
    addCopy(what, static_cast<std::size_t>(build(FRAMING_TCP)));
    const std::string rtu = std::string(what) + ", RTU";
    add(rtu.c_str(), "codec", [build] { benchmark::DoNotOptimize(build(FRAMING_RTU)); });
    addCopy(rtu.c_str(), static_cast<std::size_t>(build(FRAMING_RTU)));
}

void addRequests()
{
    addRequest(
        "read request",
        [](int framing) {
            return modbus_build_read_request(ReadHoldingRegisters, framing, buffer.data(), unit,
                                             address, quantity);
        },
        [] { return QModbusRequest(QModbusPdu::ReadHoldingRegisters, address, quantity); });
    addRequest(
        "write one register",
        [](int framing) {
            return modbus_build_write_single_register(WriteSingleRegister, framing, buffer.data(),
                                                      unit, address, 7);
        },
        [] { return QModbusRequest(QModbusPdu::WriteSingleRegister, address, quint16{7}); });
    addRequest(
        "write one coil",
        [](int framing) {
            return modbus_build_write_single_coil(framing, buffer.data(), unit, address, 1);
        },
        [] { return QModbusRequest(QModbusPdu::WriteSingleCoil, address, quint16{0xFF00}); });
    addRequest(
        "report server id",
        [](int framing) { return modbus_build_report_server_id(framing, buffer.data(), unit); },
        [] { return QModbusRequest(QModbusPdu::ReportServerId); });
    const QVector<quint16> values(quantity);
    addRequest(
        "write 10 registers",
        [](int framing) {
            return modbus_build_write_multiple_registers(WriteMultipleRegisters, framing,
                                                         buffer.data(), data.data(), unit, address,
                                                         quantity);
        },
        [values] {
            return QModbusRequest(QModbusPdu::WriteMultipleRegisters, address, quantity,
                                  quint8{2 * quantity}, values);
        });
}

// What the codec's judgement of a reply's header says, by the means of the PDU classes.
bool goodReply(const QByteArray& frame)
{
    QDataStream stream(frame);
    quint16 transaction = 0;
    quint16 protocol = 0;
    quint16 length = 0;
    quint8 from = 0;
    QModbusResponse response;
    stream >> transaction >> protocol >> length >> from >> response;
    return stream.status() == QDataStream::Ok && from == unit && !response.isException()
        && response.functionCode() == QModbusPdu::ReadHoldingRegisters
        && length == response.size() + 1;
}

bool goodPdu(const QByteArray& pdu)
{
    QDataStream stream(pdu);
    QModbusResponse response;
    stream >> response;
    return !response.isException() && response.functionCode() == QModbusPdu::ReadHoldingRegisters
        && response.isValid();
}

QByteArray replyInFrame(const char* pduHex)
{
    const QByteArray pdu = QByteArray::fromHex(pduHex);
    const auto length = static_cast<char>(pdu.size() + 1);
    return QByteArray::fromHex("aabb000000") + length + static_cast<char>(unit) + pdu;
}

void addReply(const char* what, const QByteArray& frame)
{
    add(what, "codec",
        [frame, bytes = reinterpret_cast<const std::uint8_t*>(frame.constData()),
         size = static_cast<std::uint16_t>(frame.size())] {
            benchmark::DoNotOptimize(
                modbus_check_reply_header(bytes, size, unit, ReadHoldingRegisters));
        });
    const QByteArray pdu = frame.mid(FunctionCodeOffset);
    add(what, "pdu", [pdu] { benchmark::DoNotOptimize(goodPdu(pdu)); });
    add(what, "frame", [frame] { benchmark::DoNotOptimize(goodReply(frame)); });
    addCopy(what, static_cast<std::size_t>(frame.size()));
}

void addReplies()
{
    addReply("reply, 10 registers", replyInFrame("0314").append(QByteArray(2 * quantity, 7)));
    addReply("reply, an exception", replyInFrame("8302"));
    for (const int framing : {FRAMING_RTU, FRAMING_LRC}) {
        // The unit id, the PDU of ten registers, and room for the checksum.
        static std::array<std::array<quint8, 25>, 2> frames;
        auto& frame = frames[static_cast<std::size_t>(framing)];
        frame[0] = unit;
        const int size = modbus_finish_frame(framing, frame.data(), 0, 23);
        const char* what =
            framing == FRAMING_RTU ? "checksum of a reply, RTU" : "checksum of a reply, LRC";
        add(what, "codec", [&frame, framing, size] {
            benchmark::DoNotOptimize(
                modbus_check_frame(framing, frame.data(), static_cast<std::uint16_t>(size)));
        });
        addCopy(what, static_cast<std::size_t>(size));
    }
}

void countInstructions()
{
    for (const Case& one : cases) {
        one.callOften(); // what is resolved at the first call does not count
        countAs(one.name.c_str(), one.callOften);
    }
}

} // namespace

int main(int argc, char** argv)
{
    add("nothing", "loop", [] {}); // what the loop itself takes
    addRequests();
    addReplies();
    if (runsOnValgrind()) {
        countInstructions();
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

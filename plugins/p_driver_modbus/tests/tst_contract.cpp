#include "d_cmd_drv_connect.h"
#include "d_cmd_drv_device_info.h"
#include "d_cmd_drv_listen.h"
#include "d_cmd_drv_read.h"
#include "d_cmd_drv_write.h"
#include "d_worker_modbus.h"
#include "fake_socket.h"
#include "log_catcher.h"
#include "p_driver_modbus.h"
#include "recording_host.h"
#include "table.h"

#include <cstdlib>
#include <new>
#include <optional>

using recording_host::answers;
using recording_host::callFunction;
using recording_host::show;
using recording_host::takeCalls;

// The one allocation that the module lets fail.
static bool memoryIsGone = false;
static std::size_t sizeAskedFor = 0;
// clang-format off
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{ sizeAskedFor = size; return memoryIsGone ? nullptr : std::malloc(size); }
void* operator new[](std::size_t size) { return std::malloc(size); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t /*size*/) noexcept { std::free(block); }
// clang-format on

namespace {

// The worker on a connected socket, with its insides to look at and its base's members to set.
class OpenWorker : public DWorkerModbus
{
public:
    OpenWorker() : DWorkerModbus("w") { m_socket = &socket; }
    bool isConnected() const override { return answer.value_or(DWorkerModbus::isConnected()); }
    using DAbstractWorker::m_connectionSettings, DAbstractWorker::m_requestParameters;
    using DAbstractWorker::m_socket;
    using DWorkerModbus::cbReply, DWorkerModbus::sendRequest, DWorkerModbus::m_framingMode;
    using DWorkerModbus::m_requestBuffer, DWorkerModbus::m_requestLength, DWorkerModbus::m_unitId;

    FakeSocket socket;
    std::optional<bool> answer; ///< to isConnected(), instead of the worker's own
};

template <typename Command>
DAbstractCommand* make(const ParameterMap& parameters)
{
    return new Command(parameters, nullptr);
}

std::unique_ptr<DAbstractCommand> makeCommand(const QString& name, const ParameterMap& parameters)
{
    return std::unique_ptr<DAbstractCommand>(
        name == "connect"      ? make<DCmdDrvConnect>(parameters)
            : name == "listen" ? make<DCmdDrvListen>(parameters)
            : name == "read"   ? make<DCmdDrvRead>(parameters)
            : name == "write"  ? make<DCmdDrvWrite>(parameters)
                               : make<DCmdDrvDeviceInfo>(parameters));
}

QList<DAbstractCommand*> prototypes(QObject* parent)
{
    return {new DCmdDrvConnect(parent), new DCmdDrvListen(parent), new DCmdDrvRead(parent),
            new DCmdDrvWrite(parent), new DCmdDrvDeviceInfo(parent)};
}

// A step of a command's life: false when it only sets how the host answers.
bool runStep(DAbstractCommand& command, const QString& step, bool* result)
{
    bool ok = step == "finish true";
    if (step == "base refuses") {
        return answers.execute = false;
    }
    if (step == "host refuses") {
        answers.instructionId = 0;
        return answers.update = false;
    }
    if (step == "stop fails") {
        return answers.stop = false;
    }
    if (step == "finish is turned down") {
        return answers.finish = false;
    }
    *result = step == "execute"     ? command.commandExecute()
        : step.startsWith("finish") ? command.finishTheCommand(ok)
                                    : recording_host::delegate(7, fromJson(step).toMap());
    return true;
}

} // namespace

class TestContract : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        answers = {};
        takeCalls();
    }

    void declarations_data() { addRows(QFINDTESTDATA("tables/declarations.txt")); }
    void declarations()
    {
        QFETCH(QStringList, cells);
        const QStringList which = QString(QTest::currentDataTag()).split(' ');
        const auto command = makeCommand(which[0], {});
        QCOMPARE((takeCalls() << "end").value(which[1].toInt()), cells[0]);
    }

    void commands_data() { addRows(QFINDTESTDATA("tables/commands.txt")); }
    void commands()
    {
        QFETCH(QStringList, cells);
        const auto command = makeCommand(cells[0], fromJson(cells[1]).toMap());
        const LogCatcher log(command.get());
        QStringList calls;
        takeCalls();
        for (const QString& step : parts(cells[2])) {
            bool result = false;
            if (runStep(*command, step, &result)) {
                calls = takeCalls() << (result ? "true" : "false");
            }
        }
        QCOMPARE(calls, parts(cells[3]));
        QCOMPARE(LogCatcher::take().join('\n'), cells.value(4));
    }

    void prototypesMakeCommands()
    {
        QObject parent;
        for (const DAbstractCommand* prototype : prototypes(&parent)) {
            takeCalls();
            QSharedPointer<ICommand> made = prototype->createCommand({{"register", 3}});
            const QString name = prototype->metaObject()->className();
            const QStringList calls = takeCalls();
            QVERIFY(calls.first().endsWith(" {register=3}"));
            QCOMPARE(calls.last(), "tracked '" + name + '\'');
            const QPointer<DAbstractCommand> command(dynamic_cast<DAbstractCommand*>(made.data()));
            QVERIFY(command && command != prototype);
            QCOMPARE(command->metaObject(), prototype->metaObject());
            QCOMPARE(command->parent(), &parent);
            made.clear();
            QVERIFY(!command && takeCalls().constLast().startsWith("~DAbstractCommand"));
        }
    }

    // A host may delete a plug-in object while it still holds a command. It must forget the command
    // then: a pointer that is cleared later would delete it again.
    void commandsOfADeletedObject()
    {
        static QVector<QSharedPointer<ICommand>>& forgotten =
            *new QVector<QSharedPointer<ICommand>>;
        auto parent = std::make_unique<QObject>();
        for (const DAbstractCommand* prototype : prototypes(parent.get())) {
            forgotten.append(prototype->createCommand({}));
        }
        takeCalls();
        parent.reset();
        QCOMPARE(takeCalls().filter("~DAbstractCommand").size(), 2 * forgotten.size());
    }

    void identity()
    {
        QCOMPARE(PDriverModbus::getPluginId().toString(), "{f1e5000d-744a-49c0-91f8-2854bc6507eb}");
        QCOMPARE(PDriverModbus::getPluginName(), "Plugin MODBUS Driver");
        QCOMPARE(quint32(PDriverModbus::getPluginType()), 0x44726976U);
        const PDriverModbus root;
        const std::unique_ptr<IPlugin> made(
            root.createInstance(QUuid("{11111111-2222-3333-4444-555555555555}")));
        const QString plugin = "DAbstractPlugin QUuid({f1e5000d-744a-49c0-91f8-2854bc6507eb}) "
                               "'Plugin MODBUS Driver' 1148348790u 281474976710656 QUuid(%1) "
                               "false false";
        const QString property = "property 'typeName' '' false";
        QCOMPARE(takeCalls(),
                 QStringList({plugin.arg("{00000000-0000-0000-0000-000000000000}"), property,
                              plugin.arg("{11111111-2222-3333-4444-555555555555}"), property}));
        QCOMPARE(made->pluginSubTypeName(), "");
    }

    void registration()
    {
        const LogCatcher log;
        auto plugin = std::make_unique<PDriverModbus>("{11111111-2222-3333-4444-555555555555}");
        plugin->setObjectName("pump");
        takeCalls();
        plugin->initPluginCommands();
        static const QRegularExpression which("^(init|DAbs|command|destin|announced)");
        QCOMPARE(takeCalls().filter(which).join('\n'),
                 "initAbstractCommands\n"
                 "DAbstractCommand 'connect' 'disconnect' {}\ncommand 'DCmdDrvConnect' true\n"
                 "DAbstractCommand 'listen' 'stopListening' {}\ncommand 'DCmdDrvListen' true\n"
                 "DAbstractCommand 'read' {}\ncommand 'DCmdDrvRead' true\n"
                 "DAbstractCommand 'write' {}\ncommand 'DCmdDrvWrite' true\n"
                 "DAbstractCommand 'deviceInformation' {}\ncommand 'DCmdDrvDeviceInfo' true\n"
                 "DAbstractWorker 'pump'\ndestination 'DWorkerModbus'\n"
                 "announced QUuid({11111111-2222-3333-4444-555555555555}) "
                 "'connect listen read write deviceInformation'");
        plugin.reset();
        QCOMPARE(LogCatcher::take().join('\n'), "");
    }

    void newWorker()
    {
        const OpenWorker worker;
        QCOMPARE(takeCalls().join('\n'),
                 "DAbstractWorker 'w'\nfunction 'modbus_read_coilsRegister'\n"
                 "function 'modbus_read_inputStatus'\nfunction 'modbus_read_holdingRegisters'\n"
                 "function 'modbus_read_inputRegisters'\nfunction 'modbus_write_coilsRegister'\n"
                 "function 'modbus_write_singleRegister'\nfunction 'modbus_write_multipleCoils'\n"
                 "function 'modbus_write_multipleRegisters'\n"
                 "function 'modbus_device_information'\n"
                 "keep-alive 'modbus_device_information' {} 5000");
        QCOMPARE(int(worker.m_requestBuffer.size()), 256);
        QCOMPARE(std::count(worker.m_requestBuffer.begin(), worker.m_requestBuffer.end(), 0), 256);
        QCOMPARE(worker.m_framingMode, 2);
        QCOMPARE(int(worker.m_unitId), 0);
    }

    void connectionTest()
    {
        OpenWorker worker;
        for (int state = 0; state <= QAbstractSocket::ClosingState; ++state) {
            worker.socket.setSocketState(static_cast<QAbstractSocket::SocketState>(state));
            QCOMPARE(worker.isConnected(), state == 3);
        }
        worker.m_socket = std::make_unique<FakeSocket>().get();
        QVERIFY(!worker.isConnected());
        FakeSocket survivor;
        std::make_unique<OpenWorker>()->m_socket = &survivor;
        QVERIFY(survivor.isOpen() && survivor.state() == QAbstractSocket::ConnectedState);
    }

    void requests_data() { addRows(QFINDTESTDATA("tables/requests.txt")); }
    void requests()
    {
        QFETCH(QStringList, cells);
        const ParameterMap parameters = fromJson(cells[1]).toMap();
        const bool sent = cells[2] != "-";
        OpenWorker worker;
        const LogCatcher log(&worker);
        takeCalls();
        QCOMPARE(callFunction("modbus_" + cells[0], 12, parameters), sent);
        QCOMPARE(worker.socket.output.toHex(), sent ? cells[2].toLatin1() : QByteArray());
        QCOMPARE(worker.m_requestLength, worker.socket.output.size());
        QCOMPARE(takeCalls().join('\n'), sent ? "asynchronous 12 {r=1}" : "");
        QCOMPARE(LogCatcher::take().replaceInStrings(QRegularExpression(" field available .*"), ""),
                 parts(cells.value(3)));
        QCOMPARE(show(worker.m_requestParameters), cells.value(4, show(parameters)));
    }

    void transport_data() { addRows(QFINDTESTDATA("tables/transport.txt")); }
    void transport()
    {
        QFETCH(QStringList, cells);
        const QStringList given = cells[0].split(' ');
        const int length = given[1].toInt();
        OpenWorker worker;
        worker.socket.setSocketState(static_cast<QAbstractSocket::SocketState>(given[0].toInt()));
        worker.socket.input = "late bytes";
        worker.socket.room = given[2].toInt();
        worker.m_socket = given[0] == "-1" ? nullptr : &worker.socket;
        if (given.size() > 3) {
            worker.answer = given[3] == "yes";
        }
        worker.m_requestLength = 77;
        const LogCatcher log(&worker);
        takeCalls();
        ParameterMap result = {{"a", 1}};
        recording_host::resultMap = &result;
        const bool sent = worker.sendRequest(12, &length, result);
        QCOMPARE(QString("%1 %2 %3")
                     .arg(sent)
                     .arg(worker.m_requestLength)
                     .arg(worker.socket.traffic)
                     .trimmed(),
                 cells[1]);
        QCOMPARE(worker.socket.output,
                 QByteArray(sent ? qMin(length, worker.socket.room) : 0, '\0'));
        QCOMPARE(worker.socket.input.isEmpty(), worker.m_requestLength != 77);
        QCOMPARE(takeCalls().join('\n'), sent ? "asynchronous 12 {a=1}" : "");
        QCOMPARE(LogCatcher::take().join('\n'), cells.value(2));
    }

    void bufferThatCannotBeHad()
    {
        OpenWorker worker;
        const LogCatcher log(&worker);
        memoryIsGone = true;
        const bool sent =
            callFunction("modbus_write_multipleRegisters", 12,
                         {{"funcCode", 16}, {"register", 0}, {"data", QVariantList{1, 2}}});
        memoryIsGone = false;
        QCOMPARE(int(sizeAskedFor), 4);
        QVERIFY(!sent && worker.socket.output.isEmpty());
        QCOMPARE(LogCatcher::take().join('\n'),
                 "d_worker_modbus 403 ERROR: OrderId = 31 , Modbus worker : Failure to allocate "
                 "data buffer!");
    }

    void replies_data() { addRows(QFINDTESTDATA("tables/replies.txt")); }
    void replies()
    {
        QFETCH(QStringList, cells);
        OpenWorker worker;
        const LogCatcher log(&worker);
        answers.orderParameters = fromJson(cells.value(4, cells[1])).toMap();
        QVERIFY(callFunction("modbus_" + cells[0], 12, fromJson(cells[1]).toMap()));
        LogCatcher::take();
        const QByteArray frame = QByteArray::fromHex(cells[2].toLatin1());
        const QString result = show(worker.cbReply(frame));
        QString line = LogCatcher::take().join('\n');
        if (cells[3].startsWith('{')) {
            QCOMPARE(result + line, cells[3]);
        } else {
            QCOMPARE(result, "{doneOk=false}");
            // The request map is shown below.
            line.remove(QRegularExpression(" , request = \"\\{.*\\}\"\\z"));
            QCOMPARE(line,
                     QString("d_worker_modbus %1 ERROR: !!!!!  %2  !!!!! Reply = \"%3\"")
                         .arg(cells[3].section(' ', 0, 0), cells[3].section(' ', 1),
                              frame.toHex(':').toUpper()));
        }
    }

    void repliesAfterTheConnection()
    {
        OpenWorker worker;
        const QByteArray information = QByteArray::fromHex("aabb0000000400110101");
        const LogCatcher log(&worker);
        QVERIFY(callFunction("modbus_device_information", 12, {}));
        worker.m_connectionSettings = {{"httpPort", 0}};
        worker.socket.setSocketState(QAbstractSocket::UnconnectedState);
        QCOMPARE(show(worker.cbReply(information)),
                 "{doneOk=true httpPort=0 info=x01 ipAdress='192.168.1.20'}");
        worker.m_connectionSettings = {{"httpPort", "8080"}};
        worker.m_socket = std::make_unique<FakeSocket>().get();
        QCOMPARE(show(worker.cbReply(information)),
                 "{doneOk=true httpPort=8080 info=x01 ipAdress=''}");
        worker.cbReply(QByteArray::fromHex("aabb000000030091ff"));
        QCOMPARE(LogCatcher::take().join('\n').section(' ', 2),
                 "ERROR: !!!!!  EXCEPTION  !!!!! Reply = \"AA:BB:00:00:00:03:00:91:FF\" , "
                 "request = \"{funcCode=17}\"");
    }
};

QTEST_APPLESS_MAIN(TestContract)
#include "tst_contract.moc"

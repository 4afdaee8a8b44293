// A driver for devices that are asked line by line: "GET level 3\n" is answered by "level 20.5\n",
// the mean of three measurements, or by "level !1\n" when the device measures no level.

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/order_failure.h>
#include <utilities/utilities.h>

#include <algorithm>

namespace {

constexpr int longestLine = 256;
constexpr int nameOffset = 4; // in a request

int frameLength(const char* data, int size)
{
    const auto length = static_cast<int>(std::find(data, data + size, '\n') - data) + 1;
    if (length <= size) {
        return length;
    }
    return size < longestLine ? ReplyFraming::NeedMore : ReplyFraming::Implausible;
}

int exceptionCode(const char* data, int size)
{
    const QByteArray reply = QByteArray(data, size).trimmed();
    const int mark = reply.indexOf(" !");
    return mark < 0 ? 0 : reply.mid(mark + 2).toInt();
}

QString exceptionName(int code) { return code == 1 ? QStringLiteral("no such name") : QString(); }

int requestUnit(const char* /*data*/, int /*size*/) { return -1; }

// A long name is compared as far as the head of the request shows it.
bool answers(const char* request, int requestSize, const char* reply, int replySize)
{
    const QByteArray asked = QByteArray(request, requestSize).split(' ').value(1);
    const QByteArray answered = QByteArray(reply, replySize).split(' ').first();
    return answered.left(ReplyFraming::requestHeadSize - nameOffset) == asked;
}

constexpr ReplyFraming lineFraming{frameLength, exceptionCode, exceptionName, requestUnit, answers};

class SampleWorker : public DAbstractWorker
{
public:
    explicit SampleWorker(const QString& name) : DAbstractWorker(name)
    {
        declareFunction(QStringLiteral("get"), WorkerFunction(this, &SampleWorker::get));
        setReplyFraming(lineFraming);
    }

protected:
    ParameterMap cbReply(const QByteArray& reply) override
    {
        const QList<QByteArray> words = reply.trimmed().split(' ');
        const bool good = words.size() == 2 && words[0] == m_name && !words[1].startsWith('!');
        ParameterMap result{{QStringLiteral("doneOk"), good}};
        if (good) {
            result.insert(QStringLiteral("value"), QString::fromUtf8(words[1]));
        }
        return result;
    }

private:
    bool get(const unsigned long long orderId, const ParameterMap& parameters, ParameterMap& result)
    {
        m_name = parameters.value(QStringLiteral("name")).toString().toUtf8();
        if (m_name.isEmpty() || m_name.simplified() != m_name || m_name.contains(' ')) {
            OrderFailure failure;
            failure.code = OrderFailure::Code::Usage;
            failure.text = QStringLiteral("parameter 'name' must be one word");
            result = failure.toReply();
            return false;
        }
        if (!isConnected()) {
            return false;
        }
        const QByteArray times = parameters.value(QStringLiteral("times")).toByteArray();
        m_socket->readAll(); // what came late must not be taken for this reply
        if (m_socket->write("GET " + m_name + ' ' + times + '\n') <= 0) {
            return false;
        }
        setAsyncResult(orderId, result);
        return true;
    }

    QByteArray m_name; ///< asked for last
};

// Runs the worker function of its own name with its declared parameters.
class SampleCommand : public DAbstractCommand
{
public:
    using DAbstractCommand::DAbstractCommand;

    bool commandExecute() override
    {
        if (!DAbstractCommand::commandExecute()) {
            return false;
        }
        ParameterMap map;
        for (const Declaration& declared : commandArguments()) {
            map.insert(declared.name, getParameterValue(declared.name, declared.defaultValue));
        }
        m_instruction = addInstruction(QString(), commandName(), map, 2000, ReplyDelegate());
        return m_instruction != 0;
    }

protected:
    quint64 m_instruction = 0;
};

class GetCommand : public SampleCommand
{
public:
    GetCommand(const ParameterMap& parameters, QObject* parent)
        : SampleCommand(QStringLiteral("get"), parameters, parent)
    {
        setDescription(QStringLiteral("Measure a value"));
        declareAParameter(QStringLiteral("name"), QStringLiteral("strg"),
                          QStringLiteral("Which value, one word"), QVariant());
        declareAParameter(QStringLiteral("times"), QStringLiteral("ui16"),
                          QStringLiteral("How many measurements to take the mean of"), 1);
        declareAResult(QStringLiteral("value"), QStringLiteral("strg"),
                       QStringLiteral("The mean, as the device writes it"), QVariant());
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<GetCommand>::create(parameters, parent());
    }
};

class ConnectCommand : public SampleCommand
{
public:
    ConnectCommand(const ParameterMap& parameters, QObject* parent)
        : SampleCommand(QStringLiteral("connect"), QStringLiteral("disconnect"), parameters, parent)
    {
        setDescription(QStringLiteral("Connect to the device, until disconnected"));
        declareAParameter(QStringLiteral("host"), QStringLiteral("strg"),
                          QStringLiteral("Address of the device"), QVariant());
        declareAParameter(QStringLiteral("port"), QStringLiteral("ui16"),
                          QStringLiteral("Its port"), QVariant());
        declareAResult(QStringLiteral("connected"), QStringLiteral("bool"),
                       QStringLiteral("Whether the device can be asked"), QVariant());
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<ConnectCommand>::create(parameters, parent());
    }

    // "connected" true, or "disconnected" true: the connection comes and goes until it is stopped.
    bool setReply(quint64 /*instructionId*/, const ParameterMap& reply) override
    {
        const QString connected = QStringLiteral("connected");
        return commandUpdateResult(connected, reply.value(connected).toBool());
    }

    bool finishTheCommand(bool& ok) override
    {
        stopTheInstruction(m_instruction);
        ok = addInstruction(QString(), stopCommandName(), {}, 0, ReplyDelegate()) != 0;
        return commandFinish(ok);
    }
};

} // namespace

class SampleModule : public DAbstractPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "fr.vexo.rd.box.SampleModule")

public:
    explicit SampleModule(const QUuid& objectUuid = QUuid())
        : DAbstractPlugin(QUuid(QStringLiteral("{5b0c3f0e-9a43-4c55-8f0b-2f6f6f0a7d21}")),
                          QStringLiteral("Sample driver"), TypeDriver,
                          versionFromString(QStringLiteral("1.0")), objectUuid, nullptr, false)
    {
    }

    void initPluginCommands() override
    {
        initAbstractCommands();
        declareInstructionCommand(new ConnectCommand({}, this));
        declareInstructionCommand(new GetCommand({}, this));
        initLocalDestination(new SampleWorker(objectName()));
        emit sigCommandsInitDone(objectUuid(), commandNames());
    }

    IPlugin* createInstance(const QUuid& objectUuid) const override
    {
        return new SampleModule(objectUuid);
    }

    const char* pluginSubTypeName() const override { return ""; }
};

#include "sample_module.moc"

// A driver for devices that are asked line by line: "GET level 3\n" is answered by "level 20.5\n",
// the mean of three measurements, or by "level !1\n" when the device measures no level.
// sample_device.py is such a device.

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>
#include <plugin_management/d_connect_command.h>
#include <plugin_management/d_function_command.h>
#include <plugin_management/order_failure.h>
#include <utilities/utilities.h>

class SampleWorker : public DAbstractWorker
{
public:
    explicit SampleWorker(const QString& name) : DAbstractWorker(name)
    {
        declareFunction("get", WorkerFunction(this, &SampleWorker::get));
        setReplyFraming(lineFraming());
    }

private:
    bool get(const unsigned long long orderId, const ParameterMap& parameters, ParameterMap& result)
    {
        m_name = parameters["name"].toByteArray();
        if (m_name.isEmpty() || m_name.simplified() != m_name || m_name.contains(' ')) {
            result = OrderFailure::usage("parameter 'name' must be one word").toReply();
            return false;
        }
        const QByteArray times = parameters["times"].toByteArray();
        return writeRequest(orderId, "GET " + m_name + ' ' + times + '\n', result);
    }

    ParameterMap cbReply(const QByteArray& reply) override
    {
        const QList<QByteArray> words = reply.trimmed().split(' ');
        if (words.size() != 2 || words[0] != m_name) {
            return {{"doneOk", false}};
        }
        return words[1] == "!1" ? OrderFailure::exception(1, "no such name").toReply()
                                : ParameterMap{{"value", QString::fromUtf8(words[1])}};
    }

    QByteArray m_name; ///< asked for last
};

/// "watch": measures a value again and again, until it is what is waited for, or "stopWatching".
class WatchCommand : public DAbstractCommand
{
public:
    explicit WatchCommand(QObject* parent, const ParameterMap& parameters = {})
        : DAbstractCommand("watch", "stopWatching", parameters, parent)
    {
        setDescription("Measure a value again and again");
        declareAParameter("name", "strg", "Which value, one word", {});
        declareAParameter("until", "strg", "End when the device answers this", "");
        declareAResult("value", "strg", "The value, as the device writes it", {});
    }

    QSharedPointer<ICommand> createCommand(const ParameterMap& parameters) const override
    {
        return QSharedPointer<ICommand>(new WatchCommand(parent(), parameters));
    }

    bool commandExecute() override
    {
        if (!DAbstractCommand::commandExecute()) {
            return false;
        }
        const QVariant intervalMs = getParameterValue("recurrentInterval", 1000);
        const ParameterMap map{{"name", getParameterValue("name", {})},
                               {"times", 1},
                               {"recurrent", true},
                               {"recurrentInterval", intervalMs}};
        const ReplyDelegate reply(this, &WatchCommand::handleReply);
        m_instruction = addInstruction("", "get", map, 2000, reply);
        return m_instruction != 0;
    }

private:
    bool handleReply(unsigned long long instructionId, const ParameterMap& reply)
    {
        bool ok = setReply(instructionId, reply); // publishes "value"
        if (ok && reply["value"] == getParameterValue("until", "")) {
            stopTheInstruction(m_instruction);
            commandFinish(ok);
        }
        return ok; // false: this measurement failed, which is told, and the next one comes
    }

    quint64 m_instruction = 0;
};

class SampleModule : public DAbstractPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "fr.vexo.rd.box.SampleModule")

public:
    explicit SampleModule(const QUuid& objectUuid = QUuid())
        : DAbstractPlugin(QUuid("{5b0c3f0e-9a43-4c55-8f0b-2f6f6f0a7d21}"), "Sample driver",
                          TypeDriver, versionFromString("1.0"), objectUuid, nullptr, false)
    {
    }

    void initPluginCommands() override
    {
        const Declaration name{"name", "strg", "Which value, one word", {}};
        const Declaration times{"times", "ui16", "How many measurements to take the mean of", 1};
        const Declaration value{"value", "strg", "The mean, as the device writes it", {}};
        initAbstractCommands();
        declareInstructionCommand(new DConnectCommand(this, 4000));
        declareInstructionCommand(
            new DFunctionCommand({"get", "Measure a value", {name, times}, {value}, 2000}, this));
        declareInstructionCommand(new WatchCommand(this));
        initLocalDestination(new SampleWorker(objectName()));
        emit sigCommandsInitDone(objectUuid(), commandNames());
    }

    IPlugin* createInstance(const QUuid& uuid) const override { return new SampleModule(uuid); }

    const char* pluginSubTypeName() const override { return ""; }
};

#include "sample_module.moc"

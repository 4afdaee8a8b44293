// A driver for devices that are asked line by line: "GET level 3\n" is answered by "level 20.5\n",
// the mean of three measurements, or by "level !1\n" when the device measures no level.

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
        initLocalDestination(new SampleWorker(objectName()));
        emit sigCommandsInitDone(objectUuid(), commandNames());
    }

    IPlugin* createInstance(const QUuid& uuid) const override { return new SampleModule(uuid); }

    const char* pluginSubTypeName() const override { return ""; }
};

#include "sample_module.moc"

#include "d_cmd_drv_connect.h"

#include "log_line.h"

#include <utilities/utilities.h>

namespace {

QString connectedKey() { return QStringLiteral("connected"); }

QString disconnectedKey() { return QStringLiteral("disconnected"); }

// Deliberate: a reply is rendered as it comes in and again when it has been dealt with, unless it
// is passed over. The text goes nowhere; the calls are a hook for those who trace the utilities.
void trace(const ParameterMap& reply) { convVariantMapToString(reply); }

} // namespace

DCmdDrvConnect::DCmdDrvConnect(const ParameterMap& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("connect"), QStringLiteral("disconnect"), parameters, parent)
{
    setDescription(QStringLiteral("Connect the driver to an Ethernet device"));
    declareAParameter(QStringLiteral("host"), QStringLiteral("strg"),
                      QStringLiteral("Host address of the Ethernet device to connect to"),
                      QVariant());
    declareAParameter(QStringLiteral("port"), QStringLiteral("ui16"),
                      QStringLiteral("Port number of the Ethernet device to connect to"),
                      QVariant());
    declareAParameter(QStringLiteral("timeout"), QStringLiteral("ui16"),
                      QStringLiteral("maximum delay to answer to a request"), 2000);
    declareAParameter(QStringLiteral("keepAlive"), QStringLiteral("ui16"),
                      QStringLiteral("interval, in second, to send a command to device to keep "
                                     "connection alive, 0 means no sending"),
                      0);
    declareAParameter(
        QStringLiteral("httpPort"), QStringLiteral("ui16"),
        QStringLiteral("HTTP port for device web interface (e.g., Tarvomex point loading)"), 80);
    declareAResult(connectedKey(), QStringLiteral("bool"),
                   QStringLiteral("Return TRUE if connected, FALSE otherwise"), QVariant());
}

DCmdDrvConnect::DCmdDrvConnect(QObject* parent) : DCmdDrvConnect(ParameterMap(), parent) { }

bool DCmdDrvConnect::commandExecute()
{
    if (!DAbstractCommand::commandExecute()) {
        return false;
    }
    const auto text = [this](const QString& name, const QVariant& defaultValue) {
        return getParameterValue(name, defaultValue).toString();
    };
    const int timeout =
        static_cast<int>(getParameterValue(QStringLiteral("timeout"), QVariant()).toUInt());
    // Deliberate: the HTTP port is cut to 16 bits (65616 becomes 80), the port of the device is
    // not.
    const auto httpPort =
        static_cast<quint16>(getParameterValue(QStringLiteral("httpPort"), QVariant(80)).toUInt());
    // Deliberate: "keepAlive" is declared but neither read nor passed on; the worker's own interval
    // holds, whatever the order says.
    ParameterMap map;
    map.insert(QStringLiteral("timeout"), timeout);
    map.insert(QStringLiteral("httpPort"), int{httpPort});
    map.insert(QStringLiteral("host"), text(QStringLiteral("host"), QVariant()));
    map.insert(QStringLiteral("port"),
               getParameterValue(QStringLiteral("port"), QVariant()).toUInt());
    for (const QString& name :
         {QStringLiteral("keepAliveFunction"), QStringLiteral("keepAliveFunctionRegister")}) {
        map.insert(name, text(name, QStringLiteral("")));
    }
    m_instructionId = addInstruction(QString(), QStringLiteral("connect"), map, timeout,
                                     ReplyDelegate(this, &DCmdDrvConnect::takeConnectReply));
    return m_instructionId != 0;
}

bool DCmdDrvConnect::finishTheCommand(bool& ok)
{
    if (m_instructionId != 0) {
        ok = stopTheInstruction(m_instructionId)
            && addInstruction(QString(), QStringLiteral("disconnect"), ParameterMap(), 0,
                              ReplyDelegate(this, &DCmdDrvConnect::takeDisconnectReply))
                != 0;
    }
    return commandFinish(ok);
}

QSharedPointer<ICommand> DCmdDrvConnect::createCommand(const ParameterMap& parameters) const
{
    return QSharedPointer<ICommand>(new DCmdDrvConnect(parameters, parent()));
}

// Deliberate, one-sided: a "connected" reply passes over a repeated true only, a "disconnected"
// reply over a repeated false only. Other repetitions are reported again.
bool DCmdDrvConnect::takeConnectReply(unsigned long long /*instructionId*/,
                                      const ParameterMap& reply)
{
    trace(reply);
    bool ok = false;
    const auto connected = reply.constFind(connectedKey());
    const auto disconnected = reply.constFind(disconnectedKey());
    if (connected != reply.constEnd()) {
        const bool state = connected->toBool();
        if (m_connected && state) {
            return true;
        }
        ok = reportConnected(state);
    } else if (disconnected != reply.constEnd()) {
        const bool state = !disconnected->toBool();
        if (!m_connected && !state) {
            return true;
        }
        ok = reportConnected(state);
    } else {
        log_line::error(this, log_line::badConnectReply);
    }
    trace(reply);
    return ok;
}

bool DCmdDrvConnect::takeDisconnectReply(unsigned long long /*instructionId*/,
                                         const ParameterMap& reply)
{
    trace(reply);
    bool ok = false;
    const auto disconnected = reply.constFind(disconnectedKey());
    if (disconnected != reply.constEnd()) {
        const bool state = !disconnected->toBool();
        if (state == m_connected) {
            return true;
        }
        ok = reportConnected(state);
        commandFinish(ok);
    } else {
        log_line::error(this, log_line::badDisconnectReply);
    }
    trace(reply);
    return ok;
}

bool DCmdDrvConnect::reportConnected(bool connected)
{
    m_connected = connected;
    return commandUpdateResult(connectedKey(), connected);
}

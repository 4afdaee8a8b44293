#include <runtime/engine/keep_alive.h>

namespace {

constexpr uint largestRegister = 0xFFFF;

} // namespace

void KeepAlive::setDefault(const QString& function, const ParameterMap& parameters, int intervalMs)
{
    m_defaultFunction = function;
    m_defaultParameters = parameters;
    m_function = function;
    m_parameters = parameters;
    m_intervalMs = intervalMs;
}

QString KeepAlive::choose(const ParameterMap& connectParameters)
{
    m_function = connectParameters.value(QStringLiteral("keepAliveFunction")).toString();
    if (m_function.isEmpty()) {
        m_function = m_defaultFunction;
        m_parameters = m_defaultParameters;
        return {};
    }
    if (m_function == QLatin1String("connect") || m_function == QLatin1String("disconnect")) {
        return QStringLiteral("parameter 'keepAliveFunction': '%1' sends no request; name a "
                              "function that reads")
            .arg(m_function);
    }
    const QString text =
        connectParameters.value(QStringLiteral("keepAliveFunctionRegister")).toString();
    bool isNumber = text.isEmpty(); // none given: the first register
    const uint number = isNumber ? 0 : text.toUInt(&isNumber);
    if (!isNumber || number > largestRegister) {
        return QStringLiteral("parameter 'keepAliveFunctionRegister': '%1' is not a number 0 to %2")
            .arg(text, QString::number(largestRegister));
    }
    m_parameters = {{QStringLiteral("keepAliveFunction"), m_function},
                    {QStringLiteral("register"), number}};
    return {};
}

void KeepAlive::linkOpened(qint64 nowUs)
{
    m_isWatched = true;
    m_lastTrafficUs = nowUs;
}

qint64 KeepAlive::dueUs() const
{
    const bool isWatched = m_isWatched && m_intervalMs > 0 && !m_function.isEmpty();
    return isWatched ? m_lastTrafficUs + qint64{m_intervalMs} * 1000 : never;
}

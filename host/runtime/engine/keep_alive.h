#pragma once

#include <plugin_management/types.h>

#include <limits>

/// What breaks the silence on a link: which function a worker calls, and when. Times are
/// microseconds.
class KeepAlive
{
public:
    static constexpr qint64 never = std::numeric_limits<qint64>::max();

    /// The worker's own: \a function after \a intervalMs of silence; 0 or less: none.
    void setDefault(const QString& function, const ParameterMap& parameters, int intervalMs);
    /// Takes what a connect asks for, "keepAliveFunction" and "keepAliveFunctionRegister", or the
    /// worker's own. Returns why that cannot be, or nothing. Whether the function exists is for the
    /// caller to say.
    QString choose(const ParameterMap& connectParameters);

    /// A new link: it is watched, from now on.
    void linkOpened(qint64 nowUs);
    /// Something went over the link.
    void noteTraffic(qint64 nowUs) { m_lastTrafficUs = nowUs; }
    qint64 lastTrafficUs() const { return m_lastTrafficUs; }
    /// Its function sends nothing: the link goes unwatched from here on.
    void giveUp() { m_isWatched = false; }

    /// When the silence has lasted long enough; never when there is no keep-alive.
    qint64 dueUs() const;
    const QString& function() const { return m_function; }
    const ParameterMap& parameters() const { return m_parameters; }

private:
    qint64 m_lastTrafficUs = 0;
    int m_intervalMs = 0;
    bool m_isWatched = true;
    QString m_function;
    ParameterMap m_parameters;
    QString m_defaultFunction;
    ParameterMap m_defaultParameters;
};

#pragma once

#include "device.h"
#include "findings.h"

#include <plugin_management/types.h>

#include <QRandomGenerator>

/// An order in flight.
struct Given
{
    QString command;
    quint8 function = 0;
    quint16 start = 0;
    quint16 quantity = 0;
    QByteArray data; ///< to write, as it travels
    quint64 since = 0; ///< the device's last answer before it
    int values = 0; ///< how often it has been given one

    bool writes() const { return function == 5 || function == 6 || function == 16; }
    bool repeats() const { return command == QLatin1String("listen"); }
    /// It reads what others may write.
    bool readsWritable() const;
    /// Not one that may be given twice at a time.
    bool isUnique() const { return function != 17 && !readsWritable(); }
    bool isAnsweredBy(const HostileDevice::Answer& answer) const;
    ParameterMap parameters() const;
    QString text() const;
};

/// Judges a value that was handed out for \a given: Right, Denied, Stale or Wrong.
Outcome judge(const HostileDevice& device, const Given& given, const QVariant& value);

/// Draws orders.
class Draw
{
public:
    explicit Draw(int seed) : m_random(static_cast<quint32>(seed)) { }

    int below(int limit) { return m_random.bounded(limit); }
    bool oneIn(int count) { return m_random.bounded(count) == 0; }

    Given order();

private:
    Given read();
    Given write();
    quint16 missing() { return static_cast<quint16>(HostileDevice::missingFrom + below(3000)); }
    std::size_t index(int size) { return static_cast<std::size_t>(below(size)); }

    QRandomGenerator m_random;
    quint16 m_next = 0;
};

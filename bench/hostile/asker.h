#pragma once

#include "orders.h"

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>

#include <memory>

/// One plug-in object, and what is asked of it.
class Asker : public QObject
{
public:
    Asker(DAbstractPlugin* root, HostileDevice& device, Findings& findings, int seed);

    /// Gives nothing new; what is in flight comes to its end.
    void finish();

    int inFlight() const { return m_given.size(); }
    /// How many orders it has given.
    quint64 given() const { return m_count; }

    /// What is still in flight.
    QStringList open() const;

private:
    void giveNext();
    void stopLater(quint64 id, int delayMs);
    void takeResult(quint64 id, const QString& name, const QVariant& value);
    void takeTrouble(quint64 id, const OrderFailure& failure);
    void takeEnd(const DOrder& order);
    Outcome judgeFailure(const Given& given, const OrderFailure& failure);
    void checkTimeout(const Given& given);
    void checkValues(const Given& given, const DOrder& order);
    void count(const Given& given, Outcome outcome);

    HostileDevice& m_device;
    Findings& m_findings;
    Draw m_draw;
    std::unique_ptr<DAbstractPlugin> m_plugin;
    DOrders* m_orders = nullptr;
    quint64 m_connection = 0;
    QHash<quint64, Given> m_given;
    quint64 m_count = 0;
    bool m_finishing = false;
};

#include "secured.h"

#include "world.h"

Secured::Secured(Device& device, Network::Watcher& watcher) : m_device(device), m_watcher(watcher)
{
    m_device.sealBy([this](quint64 link, const QByteArray& bytes) {
        const auto it = m_servers.find(link);
        return it != m_servers.end() ? it->second.sealed(bytes) : QByteArray();
    });
}

void Secured::sent(quint64 link, const QByteArray& bytes)
{
    TlsServer& server = m_servers[link];
    m_said = server.opened(bytes);
    const QByteArray answer = server.takeAnswer();
    if (!answer.isEmpty()) {
        m_device.greet(link, answer);
    }
    if (!m_said.isEmpty()) {
        m_device.sent(link, m_said);
    }
}

void Secured::left(quint64 link)
{
    m_servers.erase(link);
    m_device.left(link);
}

void Secured::sends(quint64 link, const QByteArray& /*bytes*/)
{
    if (!m_said.isEmpty()) {
        if (m_servers[link].isWithinRecord()) {
            World::current()->fail(-1, QStringLiteral("a request left behind a part of something"));
        }
        m_watcher.sends(link, m_said);
    }
}

void Secured::receives(quint64 link, const QByteArray& bytes)
{
    const QByteArray said = m_servers[link].received(bytes.size());
    if (!said.isEmpty()) {
        m_watcher.receives(link, said);
    }
}

#pragma once

#include "device.h"
#include "tls_server.h"

#include <map>

/// TLS between a port of the network and its device: device and watcher see what it says.
class Secured final : public Network::Listener, public Network::Watcher
{
public:
    Secured(Device& device, Network::Watcher& watcher);
    Q_DISABLE_COPY(Secured)

    void asked(quint64 link) override { m_device.asked(link); }
    void sent(quint64 link, const QByteArray& bytes) override;
    void left(quint64 link) override;

    void attempts(quint64 link) override { m_watcher.attempts(link); }
    void opens(quint64 link) override { m_watcher.opens(link); }
    void sends(quint64 link, const QByteArray& bytes) override;
    void receives(quint64 link, const QByteArray& bytes) override;
    void loses(quint64 link) override { m_watcher.loses(link); }
    void closes(quint64 link, int unread) override { m_watcher.closes(link, unread); }
    void looksUp() override { m_watcher.looksUp(); }

private:
    Device& m_device;
    Network::Watcher& m_watcher;
    std::map<quint64, TlsServer> m_servers; ///< by link
    QByteArray m_said; ///< by what was sent last
};

#pragma once

#include "client.h"

#include <QObject>
#include <QThread>

/// The devices of one thread, and that thread.
class Group
{
public:
    Group(const Job& job, int devices, std::function<void()> onReady)
        : m_job(job), m_devices(devices), m_onReady(std::move(onReady))
    {
        m_anchor.moveToThread(&m_thread);
        m_thread.start();
        call([this] { openAll(); });
    }

    ~Group() { stop(); }
    Q_DISABLE_COPY(Group)

    /// Ends devices and thread; the tally is whole from then on.
    void stop()
    {
        call([this] {
            m_clients.clear();
            m_thread.quit();
        });
        m_thread.wait();
    }

    void begin()
    {
        call([this] {
            for (const auto& client : m_clients) {
                client->begin();
            }
        });
    }

    Tally tally;

private:
    void call(const std::function<void()>& action)
    {
        QMetaObject::invokeMethod(&m_anchor, action, Qt::QueuedConnection);
    }

    void openAll()
    {
        for (int i = 0; i < m_devices; ++i) {
            m_clients.push_back(m_job.root != nullptr ? makeDriverClient(m_job, tally)
                                                      : makeQtClient(m_job, tally));
            m_clients.back()->open([this] {
                if (++m_open == m_devices) {
                    m_onReady();
                }
            });
        }
    }

    const Job& m_job;
    int m_devices;
    std::function<void()> m_onReady;
    int m_open = 0;
    std::vector<std::unique_ptr<Client>> m_clients;
    QObject m_anchor;
    QThread m_thread;
};

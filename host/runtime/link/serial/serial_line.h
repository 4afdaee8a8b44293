#pragma once

#include <runtime/link/serial/serial_settings.h>
#include <runtime/link/stream.h>
#include <runtime/loop/deadline.h>

#include <plugin_management/fast_delegate.h>

#include <memory>

class QSerialPort;

/// A serial line with frames of Modbus RTU on it: it is silent for a while before each of ours.
/// What comes while a request waits for that silence answers nothing, and is dropped.
///
/// QSerialPort opens, locks and sets it; its bytes go past that one's buffers and signals, through
/// the reactor like those of a socket.
class SerialLine final : public Stream
{
public:
    /// What it tells, from the event loop and from look(). It may be closed in each of them.
    struct Events
    {
        fastdelegate::Delegate<void> opened;
        fastdelegate::Delegate<void, const QString&> failed; ///< opening it, and why
        fastdelegate::Delegate<void> readable; ///< there are bytes, or its end
    };

    SerialLine(const SerialSettings& settings, const Events& events);
    ~SerialLine() override;
    Q_DISABLE_COPY(SerialLine)

    /// Begins to open it: it opens once nothing has come for 100 ms, so that what is still under
    /// way answers nothing. Why it cannot be opened; empty when opened or failed follows.
    QString open();
    void close();
    /// Takes in what has happened already, before the event loop comes to it.
    void look();

    qint64 receive(char* data, qint64 size) override;
    /// Takes a whole frame, which leaves within milliseconds.
    qint64 send(const char* data, qint64 size) override;
    qint64 waiting() const override;
    QString trouble() const override { return m_trouble; }

private:
    QString start();
    void handleReady(quint32 events);
    void handleDue();
    qint64 readSome(char* data, qint64 size);
    bool dropUnasked();
    void handleUnasked();
    void writeRequest();
    qint64 withoutEcho(char* data, qint64 count);
    bool hasHungUp() const;

    SerialSettings m_settings;
    Events m_events;
    std::unique_ptr<QSerialPort> m_port;
    std::shared_ptr<Reactor> m_reactor;
    Deadline m_due; ///< the end of the silence that is waited for
    int m_descriptor = -1;
    bool m_isOpen = false;
    qint64 m_givenUpUs = 0; ///< when a line that is not silent is not waited for any more
    qint64 m_silentUs = 0; ///< from then on a frame may leave
    QByteArray m_request; ///< waits for the silence
    QByteArray m_echo; ///< comes back before the reply
    QString m_trouble;
};

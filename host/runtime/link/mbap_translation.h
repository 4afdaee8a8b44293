#pragma once

#include <runtime/link/translation.h>

#include <vector>

/// Frames with an MBAP header on both sides, with another unit id or a transaction id for each
/// request on the wire (Modbus Messaging on TCP/IP V1.0b, section 3.1.3). The worker gets its own
/// back.
class MbapTranslation final : public Translation
{
public:
    explicit MbapTranslation(const LinkOptions& options);

    bool tellsRepliesApart() const override { return m_numbers; }
    void setUnit(int unit) override { m_unit = unit; }
    void begin() override;
    void endRequest() override;
    QByteArray toWire(const char* data, int size) override;
    QByteArray fromWire(const char* data, int size) override;

private:
    void translateRequest(char* frame);
    void takeReply(QByteArray frame, QByteArray& forWorker);
    bool isAwaited(const QByteArray& frame);
    quint16 nextId();

    int m_unit; ///< -1: the worker's own
    bool m_numbers;
    QByteArray m_request; ///< not whole yet
    QByteArray m_reply; ///< likewise
    bool m_isLost = false; ///< nobody knows where a frame begins
    bool m_isPending = false; ///< a request is out
    quint16 m_lastId = 0;
    quint16 m_workersId = 0; ///< of the last request
    char m_workersUnit = 0;
    std::vector<quint16> m_unanswered; ///< ids whose replies may still come
};

#pragma once

#include <runtime/link/translation.h>

/// Frames with an MBAP header on the worker's side, RTU frames with their CRC on the wire, as
/// serial servers pass them on over TCP (Modbus over Serial Line V1.02, section 2.5.1). Replies are
/// cut by what their function says of their length.
class RtuTranslation final : public Translation
{
public:
    explicit RtuTranslation(const LinkOptions& options)
        : m_unit(static_cast<char>(options.unit)) { }

    bool tellsRepliesApart() const override { return false; }
    void setUnit(int unit) override { m_unit = static_cast<char>(unit); }
    void begin() override;
    void endRequest() override { m_isPending = false; }
    QByteArray toWire(const char* data, int size) override;
    QByteArray fromWire(const char* data, int size) override;

private:
    QByteArray takeReply(const QByteArray& frame);
    QByteArray refuse(const QByteArray& bytes);

    char m_unit;
    QByteArray m_request; ///< not whole yet
    QByteArray m_reply; ///< likewise
    QByteArray m_head; ///< of the request that is out: transaction and protocol id
    char m_workersUnit = 0;
    bool m_isPending = false; ///< a request is out
};

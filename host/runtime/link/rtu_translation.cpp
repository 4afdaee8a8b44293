#include <runtime/link/rtu_translation.h>

#include <QtEndian>

#include <array>
#include <utility>

namespace {

constexpr int mbapSize = 6; // up to the unit
constexpr int idsSize = 4;
constexpr int crcSize = 2;
constexpr int shortestFrame = 5; // an exception
constexpr uchar exceptionBit = 0x80;

// Modbus over Serial Line V1.02, section 6.2.2 and appendix B.
quint16 crcOf(const char* data, int size)
{
    constexpr quint16 polynomial = 0xA001;
    quint16 crc = 0xFFFF;
    for (int i = 0; i < size; ++i) {
        crc = static_cast<quint16>(crc ^ static_cast<uchar>(data[i]));
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = (crc & 1) != 0;
            crc = static_cast<quint16>(crc >> 1);
            crc = static_cast<quint16>(carry ? crc ^ polynomial : crc);
        }
    }
    return crc;
}

bool hasGoodCrc(const QByteArray& frame)
{
    const int size = frame.size() - crcSize;
    return qFromLittleEndian<quint16>(frame.constData() + size) == crcOf(frame.constData(), size);
}

// The size of the reply that begins there, NeedMore or Implausible. Modbus Application Protocol
// V1.1b3, sections 6.1 to 6.13 and 7.
int replySize(const QByteArray& bytes)
{
    if (bytes.size() < shortestFrame) {
        return ReplyFraming::NeedMore;
    }
    const auto function = static_cast<uchar>(bytes.at(1));
    const int counted = 3 + static_cast<uchar>(bytes.at(2)) + crcSize;
    if ((function & exceptionBit) != 0) {
        return shortestFrame;
    }
    switch (function) {
    case 1: // reads: a byte count
    case 2:
    case 3:
    case 4:
    case 17:
        return counted;
    case 5: // writes: their echo
    case 6:
    case 15:
    case 16:
        return 8;
    default:
        return ReplyFraming::Implausible;
    }
}

} // namespace

void RtuTranslation::begin()
{
    m_request.clear();
    m_reply.clear();
    m_isPending = false;
    noteReply();
}

QByteArray RtuTranslation::toWire(const char* data, int size)
{
    m_request.append(data, size);
    const int length = mbapFraming().frameLength(m_request.constData(), m_request.size());
    if (length == ReplyFraming::NeedMore || length > m_request.size()) {
        return {};
    }
    m_head = m_request.left(idsSize);
    QByteArray frame = std::exchange(m_request, {}).mid(mbapSize);
    m_workersUnit = frame.at(0);
    frame[0] = m_unit;
    std::array<char, crcSize> crc{};
    qToLittleEndian(crcOf(frame.constData(), frame.size()), crc.data());
    m_isPending = true;
    return frame.append(crc.data(), crcSize);
}

QByteArray RtuTranslation::fromWire(const char* data, int size)
{
    QByteArray forWorker;
    m_reply.append(data, size);
    while (m_isPending) {
        const int length = replySize(m_reply);
        if (length == ReplyFraming::Implausible) {
            return refuse(std::exchange(m_reply, {}));
        }
        if (length == ReplyFraming::NeedMore || length > m_reply.size()) {
            return forWorker;
        }
        forWorker += takeReply(m_reply.left(length));
        m_reply.remove(0, length);
    }
    return forWorker + std::exchange(m_reply, {}); // nobody asked for what is left
}

QByteArray RtuTranslation::takeReply(const QByteArray& frame)
{
    if (!hasGoodCrc(frame)) {
        return refuse(frame);
    }
    if (frame.at(0) != m_unit) {
        drop(frame.size());
        return {};
    }
    noteReply();
    m_isPending = false;
    std::array<char, 2> length{};
    qToBigEndian(static_cast<quint16>(frame.size() - crcSize), length.data());
    QByteArray reply = m_head + QByteArray(length.data(), length.size());
    return reply + m_workersUnit + frame.mid(1, frame.size() - crcSize - 1);
}

// A header that no worker takes, so that the request fails at once as answered badly.
QByteArray RtuTranslation::refuse(const QByteArray& bytes)
{
    m_isPending = false;
    return QByteArray(mbapSize, '\0') + bytes;
}

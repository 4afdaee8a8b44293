#include <runtime/link/mbap_translation.h>

#include <QtEndian>

#include <algorithm>

namespace {

constexpr int unitOffset = 6;
constexpr std::size_t mostUnanswered = 1024;

// The size of the frame that begins there, NeedMore or Implausible.
int frameSize(const QByteArray& bytes)
{
    const int size = mbapFraming().frameLength(bytes.constData(), bytes.size());
    return size > bytes.size() ? int(ReplyFraming::NeedMore) : size;
}

} // namespace

MbapTranslation::MbapTranslation(const LinkOptions& options)
    : m_unit(options.unit), m_numbers(options.transactionIds)
{
}

// The ids go on: a gateway may hand a reply of the last connection to this one.
void MbapTranslation::begin()
{
    m_request.clear();
    m_reply.clear();
    m_isLost = false;
    m_isPending = false;
    m_unanswered.clear();
    noteReply();
}

void MbapTranslation::endRequest()
{
    if (!m_isPending) {
        return;
    }
    m_isPending = false;
    if (m_unanswered.size() == mostUnanswered) {
        m_unanswered.erase(m_unanswered.begin());
    }
    m_unanswered.push_back(m_lastId);
}

QByteArray MbapTranslation::toWire(const char* data, int size)
{
    m_request.append(data, size);
    const int length = frameSize(m_request);
    if (length == ReplyFraming::NeedMore) {
        return {};
    }
    if (length == m_request.size()) { // else it is no frame, and not ours to understand
        translateRequest(m_request.data());
    }
    return std::exchange(m_request, {});
}

void MbapTranslation::translateRequest(char* frame)
{
    endRequest();
    m_isPending = true;
    m_workersId = qFromBigEndian<quint16>(frame);
    m_workersUnit = frame[unitOffset];
    if (m_numbers) {
        qToBigEndian(nextId(), frame);
    }
    if (m_unit >= 0) {
        frame[unitOffset] = static_cast<char>(m_unit);
    }
}

// An id comes again after 65535 others; not while its first reply may still come.
quint16 MbapTranslation::nextId()
{
    do {
        ++m_lastId;
    } while (std::find(m_unanswered.cbegin(), m_unanswered.cend(), m_lastId)
             != m_unanswered.cend());
    return m_lastId;
}

QByteArray MbapTranslation::fromWire(const char* data, int size)
{
    QByteArray forWorker;
    m_reply.append(data, size);
    // Without numbers nothing may be kept that nobody waits for: its rest would come behind the
    // next request, and look like its reply. The worker's side is to see it, and ends the
    // connection.
    while (!m_isLost && (m_numbers || m_isPending)) {
        const int length = frameSize(m_reply);
        if (length == ReplyFraming::NeedMore) {
            return forWorker;
        }
        m_isLost = length == ReplyFraming::Implausible;
        if (!m_isLost) {
            takeReply(m_reply.left(length), forWorker);
            m_reply.remove(0, length);
        }
    }
    return forWorker + std::exchange(m_reply, {});
}

void MbapTranslation::takeReply(QByteArray frame, QByteArray& forWorker)
{
    if (!isAwaited(frame)) {
        drop(frame.size());
        return;
    }
    noteReply();
    m_isPending = false;
    if (m_numbers) {
        qToBigEndian(m_workersId, frame.data());
    }
    if (m_unit >= 0) {
        frame[unitOffset] = m_workersUnit;
    }
    forWorker.append(frame);
}

bool MbapTranslation::isAwaited(const QByteArray& frame)
{
    if (m_unit >= 0 && frame.at(unitOffset) != static_cast<char>(m_unit)) {
        return false;
    }
    const auto id = qFromBigEndian<quint16>(frame.constData());
    if (!m_numbers || (m_isPending && id == m_lastId)) {
        return true;
    }
    const auto late = std::find(m_unanswered.begin(), m_unanswered.end(), id);
    if (late != m_unanswered.end()) {
        m_unanswered.erase(late);
    }
    return false;
}

#include <runtime/engine/exchange.h>

#include <runtime/engine/map_lookup.h>

#include <algorithm>
#include <cstring>

using Code = OrderFailure::Code;

void Exchange::setFraming(const ReplyFraming& framing)
{
    m_framing = &framing;
    m_cutter.setFraming(framing);
}

void Exchange::begin(qint64 nowUs)
{
    m_calledUs = nowUs;
    m_limitUs = never;
    m_drained = 0;
    m_requestHeadSize = 0;
    m_replyExpected = false;
    m_isWhole = false;
    m_cutter.clear();
}

void Exchange::requestLeft(const char* data, int size)
{
    const int free = ReplyFraming::requestHeadSize - m_requestHeadSize;
    const int taken = std::min(size, free);
    std::memcpy(m_requestHead.data() + m_requestHeadSize, data, static_cast<std::size_t>(taken));
    m_requestHeadSize += taken;
}

bool Exchange::fits() const
{
    const QByteArray reply = frame();
    return surplus() == 0 && !m_cutter.implausible()
        && m_framing->answers(m_requestHead.data(), m_requestHeadSize, reply.constData(),
                              reply.size());
}

OrderFailure Exchange::verdict(const ParameterMap& judgement) const
{
    if (!fits()) {
        return misfit();
    }
    const QByteArray reply = frame();
    const int exception = m_framing->exceptionCode(reply.constData(), reply.size());
    if (exception != 0) {
        OrderFailure why = OrderFailure::exception(exception, m_framing->exceptionName(exception));
        why.unitId = m_unit >= 0 ? m_unit : m_framing->unit(reply.constData(), reply.size());
        return why;
    }
    const QVariant* done = findValue(judgement, QStringLiteral("doneOk"));
    if (done == nullptr || done->toBool()) {
        return {};
    }
    return findValue(judgement, QStringLiteral("errorCode")) != nullptr
        ? OrderFailure::fromReply(judgement)
        : misfit();
}

OrderFailure Exchange::misfit() const
{
    return failure(Code::BadReply, QStringLiteral("the device's reply does not fit the request"));
}

OrderFailure Exchange::failure(Code code, const QString& text) const
{
    OrderFailure failure = OrderFailure::of(code, text);
    failure.unitId = hasLeft() ? requestUnit() : -1;
    return failure;
}

int Exchange::requestUnit() const
{
    return m_unit >= 0 ? m_unit : m_framing->unit(m_requestHead.data(), m_requestHeadSize);
}

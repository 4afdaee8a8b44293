#include <runtime/engine/order_life.h>

#include <utility>

using Code = OrderFailure::Code;

void OrderLife::instructionRefused(const QString& why) { data.failure = OrderFailure::usage(why); }

void OrderLife::noteFailure(const OrderFailure& failure)
{
    if (failure) {
        data.failure = failure;
    }
}

void OrderLife::commandFinished(bool ok)
{
    m_isFinished = true;
    m_finishedOk = ok;
}

bool OrderLife::requestStop() { return !std::exchange(m_isStopping, true); }

bool OrderLife::mustFinishAfterRun(bool accepted, bool& ok)
{
    ok = false;
    if (m_isFinished || (accepted && m_pending > 0)) {
        return false;
    }
    if (!data.failure) {
        data.failure = OrderFailure::usage(
            accepted ? QStringLiteral("the command had nothing to ask of the device: a parameter "
                                      "has a value that it does not know")
                     : QStringLiteral("the command refused to run"));
    }
    return true;
}

bool OrderLife::mustFinishAfterReply(Outcome outcome, bool accepted, bool& ok)
{
    ok = accepted && outcome == Outcome::Done;
    if (m_isFinished || outcome == Outcome::Answer || m_pending > 0) {
        return false;
    }
    if (!ok && !data.failure) {
        data.failure = OrderFailure::of(Code::BadReply,
                                        QStringLiteral("the reply lacks what the command needs"));
    }
    return true;
}

bool OrderLife::decideEnd()
{
    const bool isOver = m_isFinished && m_pending == 0 && m_calls == 0;
    if (!isOver || data.state != DOrder::State::Running) {
        return false;
    }
    if (m_isStopping) {
        data.state = DOrder::State::Stopped;
    } else if (m_finishedOk) {
        data.state = DOrder::State::Done;
        data.failure = OrderFailure();
    } else {
        data.state = DOrder::State::Failed;
    }
    return true;
}

void OrderLife::cutShort(const QString& why)
{
    m_isFinished = true;
    data.state = DOrder::State::Stopped;
    if (!data.failure) {
        data.failure = OrderFailure::of(Code::Stopped, why);
    }
}

#include <runtime/engine/link_keeper.h>

#include <utility>

void LinkKeeper::begin(const Endpoint& endpoint, qint64 nowUs)
{
    end();
    m_endpoint = endpoint;
    m_trouble.clear();
    m_wanted = true;
    attempt(State::Opening, nowUs);
}

void LinkKeeper::end()
{
    m_backoff.reset();
    m_state = State::Closed;
    m_dueUs = never;
    m_retries = 0;
    m_wanted = false;
    m_reported = false;
    m_answered = false;
    m_wasOpen = false;
}

bool LinkKeeper::release()
{
    m_wanted = false;
    if (m_state == State::Open) {
        return false;
    }
    end();
    return true;
}

bool LinkKeeper::replace(qint64 nowUs)
{
    if (!m_wanted || !m_answered) {
        return false;
    }
    attempt(State::Reopening, nowUs);
    return true;
}

bool LinkKeeper::replacedByOther(qint64 nowUs)
{
    if (m_wanted) {
        attempt(State::Reopening, nowUs);
    }
    return m_wanted;
}

void LinkKeeper::lose(const QString& why, qint64 nowUs)
{
    m_reported = false;
    if (m_wanted) {
        retryLater(why, nowUs);
    } else {
        m_state = State::Closed;
        m_trouble = why;
    }
}

bool LinkKeeper::opened()
{
    m_state = State::Open;
    m_wasOpen = true;
    m_dueUs = never;
    return !std::exchange(m_reported, true);
}

LinkKeeper::Failed LinkKeeper::attemptFailed(const QString& why, qint64 nowUs)
{
    const bool isFirst = m_state == State::Opening;
    if (isFirst && !m_keepsTrying) {
        end();
        m_trouble = why;
        return Failed::First;
    }
    const bool isNews = !m_wasOpen && why != m_trouble;
    retryLater(why, nowUs);
    if (isFirst) {
        m_retries = 1; // from here on nobody waits for an attempt
    }
    if (isNews) {
        return Failed::Trying;
    }
    return std::exchange(m_reported, false) ? Failed::Lost : Failed::Again;
}

bool LinkKeeper::retry(qint64 nowUs)
{
    if (m_state != State::Waiting || nowUs < m_dueUs) {
        return false;
    }
    ++m_retries;
    attempt(State::Reopening, nowUs);
    return true;
}

void LinkKeeper::noteReply()
{
    m_answered = true;
    m_silences = 0;
    m_retries = 0;
    m_backoff.reset();
}

bool LinkKeeper::noteSilence()
{
    constexpr int mostSilences = 8;
    return ++m_silences >= mostSilences;
}

bool LinkKeeper::isAwaited() const
{
    switch (m_state) {
    case State::Opening:
        return true;
    case State::Waiting:
        return m_retries == 0;
    case State::Reopening:
        return m_retries <= 1;
    default:
        return false;
    }
}

void LinkKeeper::attempt(State state, qint64 nowUs)
{
    m_state = state;
    m_answered = false;
    m_silences = 0;
    m_dueUs = nowUs + qint64{m_endpoint.limitMs} * 1000;
}

void LinkKeeper::retryLater(const QString& why, qint64 nowUs)
{
    m_trouble = why;
    m_state = State::Waiting;
    m_dueUs = nowUs + qint64{m_backoff.nextDelayMs()} * 1000;
}

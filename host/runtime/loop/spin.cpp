#include <runtime/loop/spin.h>

#include <poll.h>

#include <algorithm>
#include <utility>

namespace {

// Whatever comes, the loop finds it ready then, and does not sleep.
bool comesSoon(int poll)
{
    const qint64 untilUs = steadyNowUs() + Spin::limitUs;
    pollfd all{poll, POLLIN, 0}; // unlike epoll_wait() it does not change whose turn is first
    int count = 0;
    do {
        count = ::poll(&all, 1, 0);
    } while (count == 0 && steadyNowUs() < untilUs);
    return count > 0;
}

} // namespace

Spin::~Spin()
{
    if (m_isExpected) {
        m_reactor->forget(this);
    }
}

void Spin::expect()
{
    if (!m_reactor) {
        m_reactor = Reactor::ofThisThread();
    }
    if (!std::exchange(m_isExpected, true)) {
        m_reactor->spinBeforeSleep(this);
    }
}

void Spin::spin(const std::vector<Spin*>& expected, int poll)
{
    bool isWorthIt = false;
    for (Spin* one : expected) {
        isWorthIt = one->begin() || isWorthIt;
    }
    const bool came = isWorthIt && comesSoon(poll);
    for (Spin* one : expected) {
        one->end(came);
    }
}

// As long as the last ones came in time. After one that did not, the next 1, 2, 4, ... 256 are
// passed over, so that a device that is slow costs next to nothing.
bool Spin::begin()
{
    m_isExpected = false;
    m_isSpinning = m_isAwaited() && m_toPass == 0;
    m_toPass = std::max(0, m_toPass - 1);
    return m_isSpinning;
}

void Spin::end(bool came)
{
    if (std::exchange(m_isSpinning, false)) {
        m_passed = came ? 0 : std::clamp(2 * m_passed, 1, mostPassed);
        m_toPass = m_passed;
    }
}

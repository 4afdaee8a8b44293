#include "world.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

constexpr int heldUpTurns = 2; // one in so many

World* theWorld = nullptr;

} // namespace

World::World(quint64 seed, bool isTraced) : m_trace(isTraced), m_chance(seed, 'W')
{
    theWorld = this;
}

World::~World() { theWorld = nullptr; }

World* World::current() { return theWorld; }

void World::outside(qint64 delayUs, Happening happening)
{
    add(m_outside, delayUs, std::move(happening));
}

void World::inside(qint64 delayUs, Happening happening)
{
    add(m_inside, delayUs, std::move(happening));
}

void World::add(Events& events, qint64 delayUs, Happening happening)
{
    events.push_back({m_nowUs + delayUs, ++m_numbers, std::move(happening)});
    std::push_heap(events.begin(), events.end(), [](const Event& one, const Event& other) {
        return std::tie(one.atUs, one.number) > std::tie(other.atUs, other.number);
    });
}

qint64 World::firstUs(const Events& events) { return events.empty() ? never : events.front().atUs; }

qint64 World::nextUs() const { return std::min(firstUs(m_outside), firstUs(m_inside)); }

bool World::runFirst(Events& events, qint64 untilUs)
{
    if (firstUs(events) > untilUs) {
        return false;
    }
    std::pop_heap(events.begin(), events.end(), [](const Event& one, const Event& other) {
        return std::tie(one.atUs, one.number) > std::tie(other.atUs, other.number);
    });
    const Event event = std::move(events.back());
    events.pop_back();
    m_nowUs = std::max(m_nowUs, event.atUs);
    event.happening();
    return true;
}

// What is inside may take long, or stop the process, so that time has passed behind it.
void World::passTo(qint64 us)
{
    bool more = true;
    while (more) {
        more = firstUs(m_outside) <= firstUs(m_inside) ? runFirst(m_outside, us)
                                                       : runFirst(m_inside, us);
    }
    m_nowUs = std::max(m_nowUs, us);
}

void World::holdUp()
{
    if (m_heldUpUs > 0 && !m_isCalm && m_chance.oneIn(heldUpTurns)) {
        stopProcess(m_chance.below(static_cast<int>(m_heldUpUs)));
    }
}

void World::stopProcess(qint64 us)
{
    const qint64 untilUs = m_nowUs + us;
    m_stoppedUs += us;
    while (runFirst(m_outside, untilUs)) { }
    m_nowUs = std::max(m_nowUs, untilUs);
}

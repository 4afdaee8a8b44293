#include <points/table_scan.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace Points {

namespace {

// Where devices have their first items, by their manuals: round numbers, decimal and binary, and
// the old ones taken literally.
constexpr std::array<int, 32> probes{{0,    1,     2,     10,    99,    100,   101,   200,
                                      256,  300,   400,   500,   512,   999,   1000,  1024,
                                      2000, 3000,  4000,  4096,  5000,  6000,  8000,  8192,
                                      9000, 10000, 16384, 20000, 30000, 32768, 40000, 50000}};

} // namespace

int TableScan::probe() const { return probes[m_probe]; }

std::optional<int> TableScan::next() const
{
    const bool isOver = m_isOver || isSilent() || m_probe >= probes.size() || probe() >= m_size;
    if (isOver && !m_search) {
        return std::nullopt;
    }
    return m_search ? target() : probe();
}

void TableScan::take(Answer answer)
{
    m_silences += answer == Answer::Silence ? 1 : 0;
    m_isOver = answer == Answer::NoTable;
    if (m_isOver || isSilent()) {
        m_search.reset();
    } else if (m_search) {
        follow(answer == Answer::Has);
    } else if (answer == Answer::Has) {
        begin(probe());
    } else {
        nextProbe();
    }
}

void TableScan::nextProbe()
{
    const int known = m_found.empty() ? 0 : m_found.back().end();
    do {
        ++m_probe;
    } while (m_probe < probes.size() && probe() < known);
}

// Upwards first, then downwards as far as to what was found before.
void TableScan::begin(int item)
{
    m_found.push_back({item, 1});
    m_isUpwards = true;
    m_search = Search{item, 1, m_size, false};
    if (isDone()) {
        finishSearch();
    }
}

int TableScan::target() const
{
    const int sign = m_isUpwards ? 1 : -1;
    const int distance = std::abs(m_search->bound - m_search->there);
    const int step = m_search->isHalving ? distance / 2 : std::min(m_search->step, distance - 1);
    return m_search->there + sign * step;
}

bool TableScan::isDone() const { return std::abs(m_search->bound - m_search->there) <= 1; }

void TableScan::follow(bool has)
{
    if (has) {
        m_search->there = target();
        m_search->step *= 2;
    } else {
        m_search->bound = target();
        m_search->isHalving = true;
    }
    Span& range = m_found.back();
    const int end = m_isUpwards ? m_search->there + 1 : range.end();
    range.first = m_isUpwards ? range.first : m_search->there;
    range.count = end - range.first;
    if (isDone()) {
        finishSearch();
    }
}

void TableScan::finishSearch()
{
    m_search.reset();
    if (!m_isUpwards) {
        nextProbe();
        return;
    }
    const int before = m_found.size() > 1 ? m_found[m_found.size() - 2].end() : 0;
    m_isUpwards = false;
    m_search = Search{m_found.back().first, 1, before - 1, false};
    if (isDone()) {
        finishSearch();
    }
}

} // namespace Points

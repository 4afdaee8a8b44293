#include <points/block_plan.h>

#include <algorithm>
#include <limits>
#include <tuple>

namespace Points {

namespace {

bool isBefore(Span a, Span b) { return std::tie(a.first, a.count) < std::tie(b.first, b.count); }

} // namespace

void BlockPlan::want(Span value)
{
    const auto place = std::lower_bound(m_values.begin(), m_values.end(), value, isBefore);
    if (place == m_values.end() || !(*place == value)) {
        m_values.insert(place, value);
    }
}

std::vector<Span> BlockPlan::blocks() const
{
    std::vector<Span> blocks;
    for (const Span value : m_values) {
        if (isHole(value)) {
            continue;
        }
        if (!blocks.empty() && joins(blocks.back(), value)) {
            Span& block = blocks.back();
            block.count = std::max(block.end(), value.end()) - block.first;
        } else {
            blocks.push_back(value);
        }
    }
    return blocks;
}

bool BlockPlan::split(Span block)
{
    const std::vector<Span> values = valuesIn(block);
    int widest = std::numeric_limits<int>::min();
    int cut = -1;
    for (std::size_t i = 1; i < values.size(); ++i) {
        const int gap = values[i].first - values[i - 1].end();
        // Of equal gaps the one nearest the middle, so that a hole is found in few steps.
        const bool isBetter = gap > widest || (gap == widest && i <= values.size() / 2);
        if (values[i].first > values[i - 1].first && isBetter) {
            widest = gap;
            cut = values[i].first;
        }
    }
    if (cut < 0) {
        m_holes.insert(m_holes.end(), values.begin(), values.end());
        return false;
    }
    m_cuts.insert(cut);
    return true;
}

bool BlockPlan::isHole(Span value) const
{
    return std::find(m_holes.begin(), m_holes.end(), value) != m_holes.end();
}

bool BlockPlan::joins(Span block, Span value) const
{
    const int end = std::max(block.end(), value.end());
    return value.first - block.end() <= m_largestGap && end - block.first <= m_limit
        && m_cuts.count(value.first) == 0;
}

std::vector<Span> BlockPlan::valuesIn(Span block) const
{
    std::vector<Span> values;
    std::copy_if(m_values.begin(), m_values.end(), std::back_inserter(values), [&](Span value) {
        return value.first >= block.first && value.end() <= block.end() && !isHole(value);
    });
    return values;
}

} // namespace Points

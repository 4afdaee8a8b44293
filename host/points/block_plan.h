#pragma once

#include <points/range_reading.h>

#include <set>
#include <vector>

namespace Points {

/// The blocks to read for many values of one table: neighbours are joined across small gaps, and
/// where a device has a hole the block is split, for good.
///
/// A value, not shared.
class HOST_POINTS_EXPORT BlockPlan
{
public:
    /// \a limit: items of a block, \a largestGap: items that are read for nothing between two
    /// values of a block.
    BlockPlan(int limit, int largestGap) : m_limit(limit), m_largestGap(largestGap) { }

    /// Plans to read the items of one value, \a limit at most, which always come in one block.
    void want(Span value);
    /// What to read, in ascending order. Values may share items.
    std::vector<Span> blocks() const;
    /// The device has not all of this one of blocks(). True when it is to be read in two from now
    /// on; false when the block is a single value, or several at the same place: a hole, which is
    /// not asked for any more.
    bool split(Span block);
    /// What is not asked for any more.
    const std::vector<Span>& holes() const { return m_holes; }

private:
    bool isHole(Span value) const;
    bool joins(Span block, Span value) const;
    std::vector<Span> valuesIn(Span block) const;

    int m_limit;
    int m_largestGap;
    std::vector<Span> m_values; // ascending, each once
    std::vector<Span> m_holes;
    std::set<int> m_cuts; // a value that begins here is not joined to what is before it
};

} // namespace Points

#pragma once

#include <points/range_reading.h>

#include <optional>
#include <vector>

namespace Points {

/// Finds which items of a table a device has, by asking for single ones: at places where devices
/// begin theirs, and from each that is there to both ends, by doubling steps and halving what is
/// left. What lies between the ends is taken to be there; a hole within is not looked for.
///
/// A value, not shared: next(), then take(), until next() gives nothing.
class HOST_POINTS_EXPORT TableScan
{
public:
    enum class Answer {
        Has,
        HasNot,
        NoTable, ///< the device has none of it
        Silence, ///< nothing came back
    };

    explicit TableScan(int size = 65536) : m_size(size) { }

    /// The item to ask for now; none when the scan has ended.
    std::optional<int> next() const;
    /// The answer to next().
    void take(Answer answer);
    /// What was found, ascending. The last one grows while its ends are looked for.
    const std::vector<Span>& found() const { return m_found; }
    /// Nothing came back so often that nothing more is asked for.
    bool isSilent() const { return m_silences >= mostSilences; }

private:
    static constexpr int mostSilences = 2; ///< each costs a time limit

    // Looks for the end of what is there, upwards or downwards.
    struct Search
    {
        int there = 0; // the outermost known item
        int step = 1; // to the next one that is asked for
        int bound = 0; // the innermost item that is not there
        bool isHalving = false;
    };

    int probe() const;
    void nextProbe();
    void begin(int item);
    void follow(bool has);
    int target() const;
    bool isDone() const;
    void finishSearch();

    int m_size;
    std::size_t m_probe = 0;
    std::optional<Search> m_search;
    bool m_isUpwards = true; // the search
    std::vector<Span> m_found;
    int m_silences = 0;
    bool m_isOver = false;
};

} // namespace Points

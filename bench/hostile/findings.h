#pragma once

#include <QString>

#include <array>
#include <map>
#include <string>

/// What became of an order, or of one repetition of it.
enum Outcome {
    Right, ///< or a write that was carried out
    Stale, ///< what the device gave to another request of the same form
    Wrong,
    Denied, ///< a write whose echo differs
    Exception,
    BadReply,
    TimedOut,
    NotConnected,
    Stopped,
    OutcomeCount
};

/// What has been seen, and what must not have been.
class Findings
{
public:
    /// An order, or a repetition of one, has come out so; \a kind tells how its reply was spoiled.
    void count(const std::string& kind, Outcome outcome) { ++m_counts[kind][outcome]; }

    /// \a what is wrong; of each, the first ones are told with their \a details.
    void fail(const char* what, const QString& details);

    bool failed() const { return !m_failures.empty(); }
    /// The table; a misbehaviour that no order met is a failure too.
    void print();

private:
    using Counts = std::array<quint64, OutcomeCount>;

    void printCounts() const;
    static void printLine(const std::string& name, const Counts& counts);

    std::map<std::string, Counts> m_counts;
    std::map<std::string, int> m_failures;
};

#include "findings.h"

#include <misbehaviour.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>

namespace {

constexpr int toldOfEach = 5;

constexpr std::array<const char*, OutcomeCount> outcomeNames{"right",    "stale",     "WRONG",
                                                             "denied",   "exception", "bad reply",
                                                             "time-out", "no link",   "stopped"};

} // namespace

void Findings::fail(const char* what, const QString& details)
{
    if (++m_failures[what] <= toldOfEach) {
        std::fprintf(stderr, "FAILED: %s: %s\n", what, qPrintable(details));
    }
}

void Findings::print()
{
    for (const MisbehaviourKind& kind : misbehaviourKinds) {
        if (m_counts.count(kind.name) == 0) {
            fail("a misbehaviour that no order met; give it longer", QLatin1String(kind.name));
        }
    }
    printCounts();
    for (const auto& [what, count] : m_failures) {
        std::printf("FAILED: %s: %d times\n", what.c_str(), count);
    }
}

void Findings::printCounts() const
{
    std::printf("%-26s", "reply");
    for (const char* name : outcomeNames) {
        std::printf("%10s", name);
    }
    std::printf("\n");
    Counts all{};
    for (const auto& [name, counts] : m_counts) {
        printLine(name, counts);
        std::transform(all.begin(), all.end(), counts.begin(), all.begin(), std::plus<>());
    }
    printLine("all", all);
}

void Findings::printLine(const std::string& name, const Counts& counts)
{
    std::printf("%-26s", name.c_str());
    for (const quint64 count : counts) {
        std::printf("%10llu", count);
    }
    std::printf("\n");
}

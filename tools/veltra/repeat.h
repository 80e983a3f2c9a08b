#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// Many queries, one after the other on several threads at once, and how long each took.

namespace tool {

/// Where the value at that percentage stands among so many sorted ones, by nearest rank: at the
/// smallest value that so many percent of all don't exceed. At least one value; 1 to 100 percent.
constexpr std::size_t nearestRank(std::size_t count, std::size_t percent) {
    return (count * percent + 99) / 100 - 1;
}

inline constexpr std::uint32_t kMostRepeats = 10'000'000;  // 80 MB of latencies
inline constexpr std::uint32_t kMostThreads = 256;

struct RepeatPlan {
    std::uint32_t queries = 1;  ///< of all threads together
    std::uint32_t threads = 1;
};

struct RepeatResult {
    struct Failed {
        std::uint64_t count = 0;
        std::string message;  ///< of the first
    };

    std::uint64_t run = 0;                    ///< fewer than planned after an interruption
    std::vector<std::int64_t> latencies;      ///< of the answered ones, in nanoseconds, sorted
    std::map<std::int32_t, Failed> failures;  ///< by code
    double seconds = 0;
    bool interrupted = false;

    std::uint64_t failed() const { return run - latencies.size(); }
    double perSecond() const;  ///< answered ones
};

/// Runs the query of that number, the first is 1, and throws Failure when it fails. Gets what it
/// needs ready and returns what is to be timed.
using PrepareQuery = std::function<std::function<void()>(std::uint64_t number)>;

/// Runs the planned queries, and shows progress on a terminal. Each thread makes a `PrepareQuery`
/// of its own. Ctrl-C ends it early, when the queries under way are done. An exception other than
/// Failure ends it as well, and comes out.
RepeatResult runRepeatedly(const RepeatPlan& plan, const std::function<PrepareQuery()>& makeQuery);

}  // namespace tool

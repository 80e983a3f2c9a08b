#ifndef VELTRA_BENCH_IN_TURN_H
#define VELTRA_BENCH_IN_TURN_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <vector>

/// A figure says something only beside another of the same moment: machines change speed from one
/// second to the next. So the subject and its baseline run in turn, round by round, in one process,
/// and what is reported of each is the median over all rounds.

namespace bench {

using SteadyClock = std::chrono::steady_clock;

/// What main() of a program does that first makes something for its benchmarks; its result.
int RunBenchmarks(int argc, char** argv);

double Nanoseconds(SteadyClock::duration time);

/// 0 without values.
double Median(std::vector<double> values);

/// Sets the counters "subject" and "baseline", and "ratio", the first divided by the second.
void ReportRatio(benchmark::State& state, double subject, double baseline);

/// How the calls of a round become samples: each call by itself, or, where a look at the clock
/// would take as long as a call, the mean of the round.
enum class Sample { eachCall, meanOfRound };

/// Appends the times of `calls` calls, in nanoseconds.
template <class Work>
void TimeRound(int calls, Sample sample, Work& work, std::vector<double>& times) {
    const auto begin = SteadyClock::now();
    auto last = begin;
    for (int call = 0; call < calls; ++call) {
        work();
        if (sample == Sample::meanOfRound) continue;
        const auto now = SteadyClock::now();
        times.push_back(Nanoseconds(now - last));
        last = now;
    }
    if (sample == Sample::meanOfRound)
        times.push_back(Nanoseconds(SteadyClock::now() - begin) / calls);
}

/// Runs rounds of `calls` calls of either work in turn and reports nanoseconds of one call. The
/// benchmark needs UseManualTime(); its time is that of a round of each.
template <class Subject, class Baseline>
void InTurn(benchmark::State& state, int calls, Sample sample, Subject subject, Baseline baseline) {
    std::vector<double> subjectTimes;
    std::vector<double> baselineTimes;
    for (auto _ : state) {
        const auto begin = SteadyClock::now();
        TimeRound(calls, sample, subject, subjectTimes);
        TimeRound(calls, sample, baseline, baselineTimes);
        state.SetIterationTime(Nanoseconds(SteadyClock::now() - begin) / 1e9);
    }
    ReportRatio(state, Median(std::move(subjectTimes)), Median(std::move(baselineTimes)));
}

/// Calls per second of `threads` threads together, each of which calls work(its number) again and
/// again for about as long as `round`.
double CallsPerSecond(int threads, std::chrono::milliseconds round,
                      const std::function<void(int)>& work);

/// The same in turn for two works; reports calls per second. Needs UseManualTime() too.
void RatesInTurn(benchmark::State& state, int threads, std::chrono::milliseconds round,
                 const std::function<void(int)>& subject, const std::function<void(int)>& baseline);

}  // namespace bench

#endif

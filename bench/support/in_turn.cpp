#include "support/in_turn.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>

namespace bench {

int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

double Nanoseconds(SteadyClock::duration time) {
    return std::chrono::duration<double, std::nano>(time).count();
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void ReportRatio(benchmark::State& state, double subject, double baseline) {
    state.counters["subject"] = subject;
    state.counters["baseline"] = baseline;
    state.counters["ratio"] = subject / baseline;
}

double CallsPerSecond(int threads, std::chrono::milliseconds round,
                      const std::function<void(int)>& work) {
    std::atomic<bool> over{false};
    std::atomic<std::uint64_t> calls{0};
    const auto run = [&](int number) {
        std::uint64_t mine = 0;
        for (; !over.load(std::memory_order_relaxed); ++mine)
            work(number);
        calls.fetch_add(mine);
    };
    const auto begin = SteadyClock::now();
    std::vector<std::thread> crew;
    for (int number = 0; number < threads; ++number)
        crew.emplace_back(run, number);
    std::this_thread::sleep_for(round);
    over.store(true);
    for (std::thread& thread : crew)
        thread.join();
    return static_cast<double>(calls.load()) * 1e9 / Nanoseconds(SteadyClock::now() - begin);
}

void RatesInTurn(benchmark::State& state, int threads, std::chrono::milliseconds round,
                 const std::function<void(int)>& subject,
                 const std::function<void(int)>& baseline) {
    std::vector<double> subjectRates;
    std::vector<double> baselineRates;
    for (auto _ : state) {
        const auto begin = SteadyClock::now();
        subjectRates.push_back(CallsPerSecond(threads, round, subject));
        baselineRates.push_back(CallsPerSecond(threads, round, baseline));
        state.SetIterationTime(Nanoseconds(SteadyClock::now() - begin) / 1e9);
    }
    ReportRatio(state, Median(std::move(subjectRates)), Median(std::move(baselineRates)));
}

}  // namespace bench

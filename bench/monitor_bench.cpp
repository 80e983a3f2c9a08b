// What the monitor of an idle host costs. Takes ten minutes, or VELTRA_BENCH_MONITOR_SECONDS.

#include "support/in_turn.h"
#include "support/login.h"

#include <sys/resource.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

const bench::Answerer* gateway = nullptr;

int SecondsToRun() {
    const char* const wanted = std::getenv("VELTRA_BENCH_MONITOR_SECONDS");
    return wanted != nullptr ? std::atoi(wanted) : 600;
}

/// Of the whole process: nothing but the monitor does anything in it.
double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void MonitorOfIdleHost(benchmark::State& state) {
    const std::chrono::seconds length(SecondsToRun());
    if (!bench::LogIn(*gateway)) throw std::runtime_error("login");
    for (auto _ : state) {
        const double before = ProcessorSeconds();
        std::this_thread::sleep_for(length);
        const double used = ProcessorSeconds() - before;
        const double perHour = used * 3600 / static_cast<double>(length.count());
        state.SetIterationTime(static_cast<double>(length.count()));
        state.counters["subject"] = perHour * 1e9;
        state.counters["seconds"] = static_cast<double>(length.count());
    }
    Veltra::Veltra_Unit();
}
BENCHMARK(MonitorOfIdleHost)->Iterations(1)->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    const bench::Answerer made(bench::Scheme::https, 1024);
    gateway = &made;
    return bench::RunBenchmarks(argc, argv);
}

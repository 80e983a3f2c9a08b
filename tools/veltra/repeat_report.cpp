#include "repeat_report.h"

#include "output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace tool {

namespace {

/// The places in the row of sorted latencies that are shown.
struct Mark {
    const char* name;
    std::size_t percent;  // 0 for the first
};
constexpr std::array<Mark, 5> kMarks = {
    {{"min", 0}, {"p50", 50}, {"p90", 90}, {"p99", 99}, {"max", 100}}};

double latencyMs(const RepeatResult& result, const Mark& mark) {
    constexpr double kNanosecondsPerMs = 1e6;
    const std::size_t at =
        mark.percent == 0 ? 0 : nearestRank(result.latencies.size(), mark.percent);
    return static_cast<double>(result.latencies[at]) / kNanosecondsPerMs;
}

std::string decimal(double value) {
    std::array<char, 64> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.3f", value));
    return text.data();
}

/// Why the whole is no success: the interruption, or the most frequent failure.
std::optional<Failure> verdict(const RepeatPlan& plan, const RepeatResult& result) {
    if (result.interrupted)
        return Failure("interrupted: " + std::to_string(result.run) + " of " +
                       std::to_string(plan.queries) + " queries were run");
    const auto worst = std::max_element(
        result.failures.begin(), result.failures.end(),
        [](const auto& one, const auto& other) { return one.second.count < other.second.count; });
    if (worst == result.failures.end()) return std::nullopt;
    return Failure(worst->second.message, worst->first);
}

void printText(const RepeatPlan& plan, const RepeatResult& result) {
    printLine("queries: " + std::to_string(result.run) + " run, " +
              std::to_string(result.latencies.size()) + " answered, " +
              std::to_string(result.failed()) + " failed; threads: " +
              std::to_string(plan.threads) + "; seconds: " + decimal(result.seconds));
    printLine("rate: " + decimal(result.perSecond()) + " queries per second");
    if (!result.latencies.empty()) {
        std::string line = "latency in ms:";
        for (const auto& mark : kMarks)
            line += std::string(" ") + mark.name + ' ' + decimal(latencyMs(result, mark));
        printLine(line);
    }
    for (const auto& [code, failed] : result.failures)
        printLine(printable("code " + std::to_string(code) + ": " + std::to_string(failed.count) +
                            " failed: " + failed.message));
}

void writeLatency(JsonWriter& writer, const RepeatResult& result) {
    if (result.latencies.empty()) return;
    writer.name("latencyMs");
    writer.beginObject();
    for (const auto& mark : kMarks)
        writer.member(mark.name, latencyMs(result, mark));
    writer.endObject();
}

void writeFailures(JsonWriter& writer, const RepeatResult& result) {
    writer.name("failures");
    writer.beginArray();
    for (const auto& [code, failed] : result.failures) {
        writer.beginObject();
        writer.member("code", code);
        writer.member("count", failed.count);
        writer.member("message", failed.message);
        writer.endObject();
    }
    writer.endArray();
}

}  // namespace

int reportRepeat(bool json, const std::string& traceId, const RepeatPlan& plan,
                 const RepeatResult& result) {
    const auto failure = verdict(plan, result);
    if (!json) {
        printText(plan, result);
        if (result.interrupted) complain(failure->what());
    } else {
        printJson(!failure, [&](JsonWriter& writer) {
            if (failure) writer.failure(*failure);
            writer.member("traceId", traceId);
            writer.member("repeat", std::uint64_t{plan.queries});
            writer.member("threads", std::uint64_t{plan.threads});
            writer.member("run", result.run);
            writer.member("answered", std::uint64_t{result.latencies.size()});
            writer.member("failed", result.failed());
            writer.member("interrupted", result.interrupted);
            writer.member("seconds", result.seconds);
            writer.member("queriesPerSecond", result.perSecond());
            writeLatency(writer, result);
            writeFailures(writer, result);
        });
    }
    if (result.interrupted) return kInterrupted;
    return failure ? kFailure : kSuccess;
}

}  // namespace tool

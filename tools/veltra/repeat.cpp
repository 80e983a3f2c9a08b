#include "repeat.h"

#include "output.h"
#include "process.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kProgressInterval{200};
constexpr std::int64_t kFailed = -1;  // in the place of a latency

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class Repetition {
 public:
    Repetition(const RepeatPlan& plan, const std::function<PrepareQuery()>& makeQuery)
        : plan_(plan), makeQuery_(makeQuery), latencies_(plan.queries) {}

    RepeatResult run() {
        runThreads();
        if (broken_) std::rethrow_exception(broken_);
        RepeatResult result;
        result.seconds = secondsSince(start_);
        result.run = ended_;
        result.interrupted = result.run < plan_.queries;
        result.failures = std::move(failures_);
        // Numbers are drawn in order and each one drawn was run.
        latencies_.resize(result.run);
        latencies_.erase(std::remove(latencies_.begin(), latencies_.end(), kFailed),
                         latencies_.end());
        std::sort(latencies_.begin(), latencies_.end());
        result.latencies = std::move(latencies_);
        return result;
    }

 private:
    void runThreads() {
        // Joined at the end of this block, when an exception has told them to stop.
        // cppcheck-suppress variableScope; within the "try" they would be joined before that
        std::vector<std::jthread> threads;
        try {
            while (threads.size() < std::min(plan_.threads, plan_.queries)) {
                threads.emplace_back([this] { work(); });
                const std::scoped_lock lock(mutex_);
                ++started_;
            }
            showProgress();
        } catch (...) {
            stop_ = true;
            throw;
        }
    }

    void work() noexcept {
        try {
            runQueries(makeQuery_());
        } catch (...) {
            stop_ = true;
            const std::scoped_lock lock(mutex_);
            if (!broken_) broken_ = std::current_exception();
        }
        const std::scoped_lock lock(mutex_);
        ++finished_;
        change_.notify_all();
    }

    void runQueries(const PrepareQuery& prepare) {
        while (!stop_ && !interruption_.requested()) {
            const std::uint64_t index = next_++;
            if (index >= plan_.queries) return;
            latencies_[index] = timeOf(prepare(index + 1));
            ++ended_;
        }
    }

    std::int64_t timeOf(const std::function<void()>& query) {
        const auto start = Clock::now();
        try {
            query();
            return std::chrono::nanoseconds(Clock::now() - start).count();
        } catch (const Failure& failure) {
            const std::scoped_lock lock(mutex_);
            auto& failed = failures_[failure.code];
            if (failed.count++ == 0) failed.message = failure.what();
            return kFailed;
        }
    }

    /// Returns when all threads have come to their end.
    void showProgress() {
        ProgressLine line;
        std::unique_lock lock(mutex_);
        while (!change_.wait_for(lock, kProgressInterval, [&] { return finished_ == started_; })) {
            std::uint64_t failed = 0;
            for (const auto& [code, failure] : failures_)
                failed += failure.count;
            const auto rate =
                static_cast<std::uint64_t>(static_cast<double>(ended_) / secondsSince(start_));
            line.show(std::to_string(ended_) + " of " + std::to_string(plan_.queries) +
                      " queries, " + std::to_string(failed) + " failed, " + std::to_string(rate) +
                      " a second");
        }
    }

    const RepeatPlan plan_;
    const std::function<PrepareQuery()>& makeQuery_;
    const Interruption interruption_;
    const Clock::time_point start_ = Clock::now();
    std::atomic<bool> stop_{false};
    std::atomic<std::uint64_t> next_{0};
    std::atomic<std::uint64_t> ended_{0};
    std::vector<std::int64_t> latencies_;  // each place is the thread's that drew its number
    std::mutex mutex_;                     // guards what follows
    std::condition_variable change_;
    std::size_t started_ = 0;
    std::size_t finished_ = 0;
    std::map<std::int32_t, RepeatResult::Failed> failures_;
    std::exception_ptr broken_;
};

}  // namespace

double RepeatResult::perSecond() const {
    return seconds > 0 ? static_cast<double>(latencies.size()) / seconds : 0;
}

RepeatResult runRepeatedly(const RepeatPlan& plan, const std::function<PrepareQuery()>& makeQuery) {
    return Repetition(plan, makeQuery).run();
}

}  // namespace tool

#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace gateway {

/// Lets threads wait for anything to change.
class Changes {
 public:
    void note() {
        {
            const std::scoped_lock lock(mutex_);
            ++count_;
        }
        changed_.notify_all();
    }

    /// Ends every sleep, those to come too.
    void end() {
        {
            const std::scoped_lock lock(mutex_);
            ended_ = true;
        }
        changed_.notify_all();
    }

    void sleep(std::chrono::milliseconds time) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, time, [this] { return ended_; });
    }

    bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kRetry{5};
        const auto deadline = Clock::now() + timeout;
        for (;;) {
            std::unique_lock lock(mutex_);
            const auto seen = count_;
            lock.unlock();
            if (predicate()) return true;
            if (Clock::now() >= deadline) return false;
            lock.lock();
            changed_.wait_until(lock, std::min(deadline, Clock::now() + kRetry),
                                [&] { return count_ != seen; });
        }
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t count_ = 0;
    bool ended_ = false;
};

}  // namespace gateway

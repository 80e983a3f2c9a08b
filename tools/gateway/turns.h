#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <stop_token>

namespace gateway {

/// Lets so many in at a time; the others wait, first come, first served.
class Turns {
 public:
    using Clock = std::chrono::steady_clock;

    explicit Turns(std::size_t count) : free_(count) {}

    /// A turn that is given back at its end, if it was had in time and nobody said stop.
    class Turn {
     public:
        Turn(Turns& turns, Clock::time_point deadline, const std::stop_token& stop)
            : turns_(turns), had_(turns.take(deadline, stop)) {}
        ~Turn() {
            if (had_) turns_.giveBack();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        explicit operator bool() const { return had_; }

     private:
        Turns& turns_;
        const bool had_;
    };

 private:
    struct Waiter {};

    bool take(Clock::time_point deadline, const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        const auto mine = waiting_.insert(waiting_.end(), Waiter{});
        const bool had = changed_.wait_until(lock, stop, deadline,
                                             [&] { return free_ > 0 && waiting_.begin() == mine; });
        waiting_.erase(mine);
        if (had) --free_;
        changed_.notify_all();  // somebody else is first now
        return had;
    }

    void giveBack() {
        {
            const std::scoped_lock lock(mutex_);
            ++free_;
        }
        changed_.notify_all();
    }

    std::mutex mutex_;  // guards what follows
    std::condition_variable_any changed_;
    std::list<Waiter> waiting_;
    std::size_t free_;
};

}  // namespace gateway

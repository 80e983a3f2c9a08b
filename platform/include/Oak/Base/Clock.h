#ifndef OAK_BASE_CLOCK_H
#define OAK_BASE_CLOCK_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace Oak::Base {

/// The time of day, and waiting. Both are in one place so that a test can replace them together.
class Clock {
 public:
    /// The system clock: milliseconds since 1970-01-01 00:00:00 UTC. It may jump in either
    /// direction.
    static std::int64_t SystemMilliseconds();

    /// Waits on `condition` until `wake` returns true or `timeout` has passed by the steady clock,
    /// which changes of the system clock don't affect. `lock` is held whenever `wake` is called and
    /// when this returns. Returns the last result of `wake`.
    static bool WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                        std::chrono::milliseconds timeout, const std::function<bool()>& wake);
};

}  // namespace Oak::Base

#endif

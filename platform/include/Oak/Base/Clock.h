#ifndef OAK_BASE_CLOCK_H
#define OAK_BASE_CLOCK_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace Oak::Base {

/// The time of day, and waiting. Both stand in one place so that a test can own them together.
class Clock {
 public:
    /// The system clock: milliseconds since 1970-01-01 00:00:00 UTC. It may jump either way.
    static std::int64_t SystemMilliseconds();

    /// Waits on `condition` until `wake` holds or `timeout` has passed by the steady clock, which
    /// no change of the system clock shortens or stretches. `lock` is held when `wake` is tested
    /// and when this returns. The result is that of the last test of `wake`.
    static bool WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                        std::chrono::milliseconds timeout, const std::function<bool()>& wake);
};

}  // namespace Oak::Base

#endif

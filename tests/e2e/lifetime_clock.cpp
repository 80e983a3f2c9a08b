// In place of the system's clock, for a library whose every check finds the token too old, and
// which tells on standard output when the monitor begins to wait or to pause.

#include <Oak/Base/Clock.h>

#include <unistd.h>

#include <atomic>
#include <string_view>

namespace Oak::Base {

std::int64_t Clock::SystemMilliseconds() {
    static std::atomic<std::int64_t> now{0};
    return now += 13LL * 60 * 60 * 1000;
}

bool Clock::WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::chrono::milliseconds timeout, const std::function<bool()>& wake) {
    // Told with the lock held: whoever wants to end the wait can't come before it has begun.
    const std::string_view where = timeout == std::chrono::minutes(1) ? "pausing\n" : "waiting\n";
    if (write(STDOUT_FILENO, where.data(), where.size()) < 0) return wake();
    return condition.wait_for(lock, timeout, wake);
}

}  // namespace Oak::Base

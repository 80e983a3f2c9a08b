#include <Oak/Base/Clock.h>

#include <algorithm>

namespace Oak::Base {

std::int64_t Clock::SystemMilliseconds() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

bool Clock::WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::chrono::milliseconds timeout, const std::function<bool()>& wake) {
    // Bounded so that now + timeout can't overflow the steady clock's 64-bit nanoseconds.
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
    return condition.wait_for(lock, std::min(timeout, longest), wake);
}

}  // namespace Oak::Base

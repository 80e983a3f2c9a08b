#ifndef VELTRA_TESTS_E2E_GIVEN_UP_H
#define VELTRA_TESTS_E2E_GIVEN_UP_H

#include <Veltra/Veltra.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

namespace e2e {

using std::chrono::milliseconds;

constexpr milliseconds kLimit{300};

/// Makes a call that fails, gives it up, by its limit or by cancelling it once `reached` says that it
/// is where it should be, and expects it to return within `soon` and to say why.
inline void GiveUp(bool byLimit, milliseconds soon, const std::function<bool()>& reached,
                   const std::function<bool()>& call) {
    using Clock = std::chrono::steady_clock;
    Veltra::CCallControl control;
    if (byLimit) control.SetTimeLimit(kLimit.count());
    Veltra::CCallReport report;
    const auto begun = Clock::now();
    auto ended = begun;
    std::thread caller([&] {
        const Veltra::CCallScope scope(control);
        EXPECT_FALSE(call());
        ended = Clock::now();
        report = Veltra::Veltra_LastCall();
    });
    EXPECT_TRUE(reached());
    const auto cancelled = Clock::now();
    if (!byLimit) control.Cancel();
    caller.join();
    EXPECT_LT(ended - (byLimit ? begun + kLimit : cancelled), soon);
    EXPECT_TRUE(!byLimit || ended - begun >= kLimit);
    EXPECT_EQ(report.Outcome(),
              byLimit ? Veltra::CallOutcome::TimedOut : Veltra::CallOutcome::Cancelled)
        << report.Detail();
    EXPECT_EQ(report.Retryable(), byLimit);
    EXPECT_GE(report.Attempts(), 1);
}

}  // namespace e2e

#endif

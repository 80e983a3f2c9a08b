#include "RenewalGate.h"

#include "CallWatch.h"

#include <Oak/Base/Clock.h>

#include <chrono>
#include <utility>

namespace Veltra {

namespace {

constexpr std::chrono::minutes kRetryPause{1};

}  // namespace

/// Its end publishes the outcome; an exception counts as a failure.
class RenewalGate::Turn : private Oak::Base::CNoncopyable {
 public:
    /// `lock` holds the mutex of the gate, which is free.
    Turn(RenewalGate& gate, std::unique_lock<std::mutex> lock) : gate_(gate) {
        gate_.holder_ = std::this_thread::get_id();
        lock.unlock();
    }

    ~Turn() {
        if (!ended_) End(Outcome::failed);
    }

    /// Returns the number of outcomes by then.
    std::uint64_t End(Outcome outcome) {
        ended_ = true;
        const std::lock_guard<std::mutex> lock(gate_.mutex_);
        gate_.holder_ = {};
        if (outcome != Outcome::cut) ++gate_.outcomes_;
        if (outcome == Outcome::succeeded) gate_.lastSuccess_ = gate_.outcomes_;
        gate_.changed_.notify_all();
        return gate_.outcomes_;
    }

 private:
    RenewalGate& gate_;
    bool ended_ = false;
};

RenewalGate::RenewalGate(std::function<void(bool)> shared) : shared_(std::move(shared)) {}

std::uint64_t RenewalGate::Outcomes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return outcomes_;
}

bool RenewalGate::IsMine() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return holder_ == std::this_thread::get_id();
}

RenewalGate::Outcome RenewalGate::Run(const Renewal& renew, const GiveUp& giveUp) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (holder_ == std::this_thread::get_id()) return Outcome::cut;
    Await(lock, [&] { return IsFree() || giveUp(); });
    if (!IsFree()) return Outcome::cut;
    Turn turn(*this, std::move(lock));
    const Outcome outcome = renew(turn);
    turn.End(outcome);
    return outcome;
}

RenewalGate::Outcome RenewalGate::RunOrShare(const Renewal& renew, const GiveUp& giveUp,
                                             std::uint64_t& seen) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (holder_ == std::this_thread::get_id()) return Outcome::cut;
    Await(lock, [&] { return IsFree() || outcomes_ != seen || giveUp(); });
    if (giveUp()) return Outcome::cut;
    if (outcomes_ != seen) {
        const bool succeeded = lastSuccess_ > seen;
        seen = outcomes_;
        shared_(succeeded);
        return succeeded ? Outcome::succeeded : Outcome::failed;
    }
    Turn turn(*this, std::move(lock));
    const Outcome outcome = renew(turn);
    seen = turn.End(outcome);
    return outcome;
}

bool RenewalGate::Pause(std::uint64_t seen, const GiveUp& giveUp) {
    std::unique_lock<std::mutex> lock(mutex_);
    Oak::Base::Clock::WaitFor(changed_, lock, CallWatch::Patience(kRetryPause),
                              [&] { return giveUp() || lastSuccess_ > seen; });
    return !giveUp();
}

/// Until `wake` holds, which the end of the calling thread's patience brings about, too.
void RenewalGate::Await(std::unique_lock<std::mutex>& lock, const GiveUp& wake) {
    while (!Oak::Base::Clock::WaitFor(changed_, lock, CallWatch::Patience(), wake)) {
    }
}

void RenewalGate::Wake() {
    const std::lock_guard<std::mutex> lock(mutex_);  // who waits has asked, or will be woken
    changed_.notify_all();
}

}  // namespace Veltra

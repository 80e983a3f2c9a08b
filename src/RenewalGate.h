#ifndef VELTRA_SRC_RENEWALGATE_H
#define VELTRA_SRC_RENEWALGATE_H

#include <Oak/Base/Noncopyable.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace Veltra {

/// Lets one thread at a time renew the token, and tells the others how it went.
///
/// States: free, or taken by one thread. A thread that finds the gate free takes it, renews, and
/// frees it with an outcome, which is numbered. A thread that finds it taken waits: a login until
/// the gate is free, a check until that or the next outcome, which it takes as its own. A renewal
/// that was cut has no outcome, so the next thread that waits takes the gate.
///
/// No lock is held while a thread renews. Any thread may call any member. `giveUp` is asked under
/// the gate's lock, so it must not block; whoever makes it true calls `Wake` afterwards.
class RenewalGate : private Oak::Base::CNoncopyable {
 public:
    enum class Outcome { succeeded, failed, cut };
    class Turn;  ///< shows that the calling thread has the gate
    using Renewal = std::function<Outcome(const Turn&)>;
    using GiveUp = std::function<bool()>;

    /// `shared` is told, under the gate's lock, each outcome that a check takes as its own.
    explicit RenewalGate(std::function<void(bool succeeded)> shared);

    /// The number of outcomes so far.
    std::uint64_t Outcomes() const;

    /// Whether the calling thread has the gate.
    bool IsMine() const;

    /// Waits for the gate and renews. Cut without it when the calling thread is renewing already,
    /// and when `giveUp` holds before the gate is free.
    Outcome Run(const Renewal& renew, const GiveUp& giveUp);

    /// The same, unless there is an outcome that `seen` doesn't count: then the last one is
    /// returned instead. `seen` counts what is returned.
    Outcome RunOrShare(const Renewal& renew, const GiveUp& giveUp, std::uint64_t& seen);

    /// Waits a minute, or until there is a success that `seen` doesn't count. False when `giveUp`
    /// holds.
    bool Pause(std::uint64_t seen, const GiveUp& giveUp);

    /// Makes whoever waits ask its `giveUp` again.
    void Wake();

 private:
    void Await(std::unique_lock<std::mutex>& lock, const GiveUp& wake);
    bool IsFree() const { return holder_ == std::thread::id(); }

    const std::function<void(bool)> shared_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;  // announces every change below
    std::thread::id holder_;           // whose turn it is; none while the gate is free
    std::uint64_t outcomes_ = 0;
    std::uint64_t lastSuccess_ = 0;  // the number of the last good outcome
};

}  // namespace Veltra

#endif

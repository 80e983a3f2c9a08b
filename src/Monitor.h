#ifndef VELTRA_SRC_MONITOR_H
#define VELTRA_SRC_MONITOR_H

#include <Oak/Base/Noncopyable.h>
#include <Oak/Base/Process.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace Veltra {

/// The life of the one thread that checks the token every ten seconds.
///
/// States: none, starting, running, stopping.
///
///     none -> starting      Start, on a host thread, which makes the thread
///     starting -> running   the thread runs
///     starting -> none      the system gives no thread
///     running -> stopping   Stop, or a Start after a stop that couldn't join: they join the thread
///     stopping -> none      the thread has ended
///
/// Whoever finds a state on its way waits until it has arrived, so there is never a second monitor
/// and never a second join. On the monitor's own thread, and on the thread that starts it, Stop
/// asks for the end and waits for nothing: a log handler may call it there. `stopFlag_` is set
/// under `cvMutex_`, so that no wait misses it. No lock is held across a check, a join or a log
/// record.
///
/// `operation` names the caller in the log records.
class Monitor : private Oak::Base::CNoncopyable {
 public:
    /// `check` is what the thread does in each cycle, under a CallWatch that knows of the stop.
    /// `wakeWaits` wakes whoever waits elsewhere and asks that or StopRequests.
    Monitor(std::function<void()> check, std::function<void()> wakeWaits);

    /// Starts the thread unless it runs; returns once it does. Waits for a stop under way. Does
    /// nothing when Stop was called since it had been called `stopsBefore` times: a stop in the
    /// middle of a login wins over the login's start.
    void Start(const char* operation, std::uint64_t stopsBefore);

    /// Ends the thread and returns when it has ended.
    void Stop(const char* operation);

    /// No later Start has an effect.
    void Close();

    std::uint64_t StopRequests() const { return stopRequests_.load(); }

    /// Whether the calling thread is the monitor.
    static bool IsThisThread();

 private:
    enum class State { none, starting, running, stopping };

    bool Told() const { return stopFlag_.load(std::memory_order_relaxed); }
    bool MayStart(std::unique_lock<std::mutex>& lock, std::uint64_t stopsBefore);
    void Loop();
    void EndStarting(State state);
    Oak::Base::ServiceThread TakeToJoin();
    void Join(Oak::Base::ServiceThread thread);

    const std::function<void()> check_;
    const std::function<void()> wakeWaits_;
    const std::int32_t checkIntervalMs_ = 10000;

    std::atomic<bool> stopFlag_{false};  // set under cvMutex_
    std::atomic<std::uint64_t> stopRequests_{0};
    std::mutex cvMutex_;
    std::condition_variable cv_;  // announces every change below, and stopFlag_
    State state_ = State::none;
    Oak::Base::ServiceThread monitorThread_;
    bool runs_ = false;        // its thread has begun and is not joined yet
    std::thread::id starter_;  // who is starting it
    std::uint64_t ended_ = 0;  // how many monitors have ended
    bool closed_ = false;
};

}  // namespace Veltra

#endif

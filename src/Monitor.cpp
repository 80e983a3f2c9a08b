#include "Monitor.h"

#include "CallWatch.h"
#include "Log.h"

#include <Oak/Base/Clock.h>

#include <chrono>
#include <exception>
#include <utility>

namespace Veltra {

namespace {

/// Set on the monitor's thread alone. A mark of the thread itself, since the system hands out the
/// id of a thread that has ended again.
constinit thread_local bool onMonitorThread = false;

}  // namespace

Monitor::Monitor(std::function<void()> check, std::function<void()> wakeWaits)
    : check_(std::move(check)), wakeWaits_(std::move(wakeWaits)) {}

bool Monitor::IsThisThread() {
    return onMonitorThread;
}

void Monitor::Loop() {
    VELTRA_OPERATION(operation);
    onMonitorThread = true;
    {
        const std::lock_guard<std::mutex> lock(cvMutex_);
        runs_ = true;
        cv_.notify_all();
    }
    const auto told = [this] { return Told(); };
    while (!told()) {
        try {
            const CallWatch cycle(stopFlag_);
            check_();
        } catch (const std::exception& failure) {
            VELTRA_LOG(operation, 5, "check of the token failed:%s", failure.what());
        } catch (...) {
            VELTRA_LOG(operation, 5, "check of the token failed");
        }
        std::unique_lock<std::mutex> lock(cvMutex_);
        Oak::Base::Clock::WaitFor(cv_, lock, std::chrono::milliseconds(checkIntervalMs_), told);
    }
    // All that this thread may still do is to unload the module, and free this object with it.
    onMonitorThread = false;
}

/// Waits for a state on its way. Whether the caller may start the thread; `lock` is held.
bool Monitor::MayStart(std::unique_lock<std::mutex>& lock, std::uint64_t stopsBefore) {
    while (state_ != State::none) {
        const bool running = state_ == State::running;
        if (closed_ || starter_ == std::this_thread::get_id()) return false;
        if (stopRequests_ != stopsBefore) return false;
        if (!running && onMonitorThread) return false;  // whoever starts or joins it waits for it
        if (!running) {
            cv_.wait(lock);
        } else if (!Told()) {
            return false;
        } else if (onMonitorThread) {
            // Told to stop by a log handler on this thread, and now to go on by another.
            stopFlag_.store(false, std::memory_order_relaxed);
            return false;
        } else {
            // Told to stop from its own thread, which could not join itself.
            Oak::Base::ServiceThread thread = TakeToJoin();
            lock.unlock();
            Join(std::move(thread));
            lock.lock();
        }
    }
    return !closed_ && stopRequests_ == stopsBefore;
}

void Monitor::Start(const char* operation, std::uint64_t stopsBefore) {
    std::unique_lock<std::mutex> lock(cvMutex_);
    if (!MayStart(lock, stopsBefore)) return;
    state_ = State::starting;
    starter_ = std::this_thread::get_id();
    stopFlag_.store(false, std::memory_order_relaxed);
    lock.unlock();

    VELTRA_LOG(operation, 3, "monitorThread_ begin.");
    try {
        Oak::Base::ServiceThread thread("veltra-monitor", [this] { Loop(); });
        lock.lock();
        cv_.wait(lock, [this] { return runs_; });
        monitorThread_ = std::move(thread);
        EndStarting(State::running);
    } catch (const std::exception& failure) {  // no thread, or no memory for one
        lock.lock();
        EndStarting(State::none);
        lock.unlock();
        VELTRA_LOG(operation, 5, "monitorThread_ can not begin:%s", failure.what());
    }
}

/// Called with cvMutex_ held.
void Monitor::EndStarting(State state) {
    state_ = state;
    starter_ = {};
    cv_.notify_all();
}

void Monitor::Stop(const char* operation) {
    Oak::Base::ServiceThread thread;
    std::unique_lock<std::mutex> lock(cvMutex_);
    stopFlag_.store(true, std::memory_order_relaxed);
    ++stopRequests_;
    cv_.notify_all();
    const bool joins = !onMonitorThread && starter_ != std::this_thread::get_id();
    const std::uint64_t endedBefore = ended_;
    const bool found = joins && state_ == State::running;
    if (found) thread = TakeToJoin();
    lock.unlock();
    wakeWaits_();
    if (!joins) return;
    if (!found) {
        lock.lock();
        cv_.wait(lock, [&] {
            return state_ == State::none || state_ == State::running || ended_ != endedBefore;
        });
        if (state_ != State::running || ended_ != endedBefore) return;
        thread = TakeToJoin();
        lock.unlock();
        wakeWaits_();
    }
    Join(std::move(thread));
    VELTRA_LOG(operation, 3, "monitorThread_ end.");
}

/// Claims the running thread, which nobody else then joins. Called with cvMutex_ held.
Oak::Base::ServiceThread Monitor::TakeToJoin() {
    state_ = State::stopping;
    stopFlag_.store(true, std::memory_order_relaxed);  // a log handler on it may have cleared it
    cv_.notify_all();
    return std::move(monitorThread_);
}

/// Joins without a lock being held: whoever else wants to start or stop waits on the state.
void Monitor::Join(Oak::Base::ServiceThread thread) {
    thread.Join();
    const std::lock_guard<std::mutex> lock(cvMutex_);
    runs_ = false;
    state_ = State::none;
    ++ended_;
    cv_.notify_all();
}

void Monitor::Close() {
    const std::lock_guard<std::mutex> lock(cvMutex_);
    closed_ = true;
}

}  // namespace Veltra

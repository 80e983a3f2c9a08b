#ifndef OAK_BASE_PROCESS_H
#define OAK_BASE_PROCESS_H

#include <functional>
#include <memory>

namespace Oak::Base {

/// Whether the other threads of the process are gone, wherever they were, so that the locks they
/// held will never be released. That is so in a child forked from a process that had called this
/// function before (a process that forks before its first call is not affected, so a host may turn
/// itself into a daemon first); and on Windows once the process ends, because the system ends all
/// other threads first. Nothing may be locked or waited for then. Takes no lock.
bool OtherThreadsGone() noexcept;

/// A service thread of the library. It has a name that debuggers show (at most 15 bytes are kept)
/// and never handles an asynchronous signal: those are for the host to handle on its own threads.
/// Where a host could unload the module under a running thread without waiting for it (Windows),
/// the module stays loaded until `body` has returned.
///
/// Movable. One thread at a time may use an object.
class ServiceThread {
 public:
    /// Holds no thread.
    ServiceThread() noexcept;
    /// Starts one. `name` is a literal. Throws std::system_error if the system can't start a
    /// thread, and std::bad_alloc.
    ServiceThread(const char* name, std::function<void()> body);
    ServiceThread(ServiceThread&& other) noexcept;
    ServiceThread& operator=(ServiceThread&& other) noexcept;
    /// The thread must have been joined; otherwise the process is terminated, as with std::thread.
    ~ServiceThread();

    /// Waits until `body` has returned. Call it once for each thread, and not on that thread.
    void Join();

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace Oak::Base

#endif

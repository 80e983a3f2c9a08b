#ifndef OAK_BASE_PROCESS_H
#define OAK_BASE_PROCESS_H

#include <functional>
#include <memory>

namespace Oak::Base {

/// True where the other threads of the process are gone, wherever they were, and the locks they
/// held are held for ever: in a child that was forked from a process which had called this function
/// before (one that forks before its first call is not affected, so a host may turn itself into a
/// daemon first); and on Windows, which ends all other threads first, once the process ends.
/// Nothing may be locked or waited for then. Takes no lock.
bool OtherThreadsGone() noexcept;

/// A service thread of the library: one that bears a name which debuggers show (15 bytes at most
/// are kept) and never handles an asynchronous signal, since these are the host's to handle on its
/// own threads. Where a host could unload the module under a running thread without waiting for it
/// (Windows), the module stays until `body` has returned.
///
/// Movable. One thread at a time uses an object.
class ServiceThread {
 public:
    /// Holds no thread.
    ServiceThread() noexcept;
    /// Starts one. `name` is a literal. Throws std::system_error when the system gives no thread,
    /// and std::bad_alloc.
    ServiceThread(const char* name, std::function<void()> body);
    ServiceThread(ServiceThread&& other) noexcept;
    ServiceThread& operator=(ServiceThread&& other) noexcept;
    /// A thread that it holds must have been joined, or the process is ended, as std::thread does.
    ~ServiceThread();

    /// Waits until `body` has returned. Once for each thread, and not on that thread.
    void Join();

 private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace Oak::Base

#endif

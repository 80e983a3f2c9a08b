#ifndef OAK_BASE_PROCESS_H
#define OAK_BASE_PROCESS_H

#include <functional>
#include <thread>

namespace Oak::Base {

/// True in a child that was forked from a process which had called this function before: threads
/// and locks of the parent are in an unknown state there. A process that forks before its first
/// call is not affected, so a host may turn itself into a daemon first. Takes no lock.
bool InForkedChild() noexcept;

/// Starts a service thread: one that bears a name which debuggers show (15 bytes at most are kept),
/// and that never handles an asynchronous signal, since these are the host's to handle on its own
/// threads. `name` is a literal. Throws what std::thread throws.
std::thread StartServiceThread(const char* name, std::function<void()> body);

}  // namespace Oak::Base

#endif

#pragma once

#include <csignal>

namespace gateway {

/// Threads started while it lives never take a signal: neither the host's, nor SIGPIPE.
class SignalsBlocked {
 public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
    sigset_t before_;
};

/// Undoes what a library does to the process's disposition of SIGPIPE while it lives, lest a test
/// take a program for safe from SIGPIPE that isn't.
class SigpipeKept {
 public:
    SigpipeKept();
    ~SigpipeKept();
    SigpipeKept(const SigpipeKept&) = delete;
    SigpipeKept& operator=(const SigpipeKept&) = delete;

 private:
    struct sigaction before_;
};

/// SIGINT and SIGTERM as something to wait for. Made before any other thread exists.
class EndSignal {
 public:
    EndSignal();
    void wait() const;
    /// Makes wait() return, from any thread.
    static void raise();

 private:
    sigset_t signals_;
};

}  // namespace gateway

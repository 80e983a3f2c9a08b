#include "signals_posix.h"

#include <unistd.h>

#include <initializer_list>

namespace gateway {

SignalsBlocked::SignalsBlocked() : before_() {
    sigset_t all;
    sigfillset(&all);
    // A fault of the program itself must still end it where it happens.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigdelset(&all, fault);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalsBlocked::~SignalsBlocked() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

SigpipeKept::SigpipeKept() : before_() {
    sigaction(SIGPIPE, nullptr, &before_);
}

SigpipeKept::~SigpipeKept() {
    sigaction(SIGPIPE, &before_, nullptr);
}

EndSignal::EndSignal() : signals_() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
}

void EndSignal::wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
}

void EndSignal::raise() {
    kill(getpid(), SIGTERM);
}

}  // namespace gateway

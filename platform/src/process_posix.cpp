#include <Oak/Base/Noncopyable.h>
#include <Oak/Base/Process.h>

#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <utility>

namespace Oak::Base {
namespace {

constinit std::atomic<bool> watchingForks{false};
constinit std::atomic<bool> forkedChild{false};

void MarkChild() {
    forkedChild.store(true, std::memory_order_relaxed);
}

// Threads that come here together each register: the handler may run twice, but none of them can
// return, and fork, before one registration is in place.
void WatchForks() noexcept {
    if (pthread_atfork(nullptr, nullptr, MarkChild) == 0)
        watchingForks.store(true, std::memory_order_release);
}

void NameThread(const char* name) noexcept {
    std::array<char, 16> kept{};
    std::strncpy(kept.data(), name, kept.size() - 1);
    pthread_setname_np(pthread_self(), kept.data());
}

/// Blocks asynchronous signals in the calling thread, and in those it starts, while this lives. A
/// signal that reports a fault of the thread's own code stays open: blocked, it would end the
/// process without the host's crash handler.
class SignalsBlocked : private CNoncopyable {
 public:
    SignalsBlocked() noexcept {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
    sigset_t before_{};
};

}  // namespace

bool OtherThreadsGone() noexcept {
    if (!watchingForks.load(std::memory_order_acquire)) WatchForks();
    return forkedChild.load(std::memory_order_relaxed);
}

struct ServiceThread::State {
    std::thread thread;
};

ServiceThread::ServiceThread() noexcept = default;
ServiceThread::ServiceThread(ServiceThread&& other) noexcept = default;
ServiceThread& ServiceThread::operator=(ServiceThread&& other) noexcept = default;
ServiceThread::~ServiceThread() = default;

ServiceThread::ServiceThread(const char* name, std::function<void()> body)
    : state_(std::make_unique<State>()) {
    const SignalsBlocked blocked;  // inherited by the thread from its very beginning
    state_->thread = std::thread([name, body = std::move(body)] {
        NameThread(name);
        body();
    });
}

void ServiceThread::Join() {
    state_->thread.join();
}

}  // namespace Oak::Base

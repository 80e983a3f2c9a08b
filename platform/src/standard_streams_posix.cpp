#include <Oak/Base/StandardStreams.h>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace Oak::Base {
namespace {

/// Keeps SIGPIPE from the calling thread while it lives, and takes the one that a write of this
/// thread raised; one that was pending before stays for the host.
class PipeSignalHeldBack {
 public:
    PipeSignalHeldBack() noexcept {
        sigset_t pending;
        sigpending(&pending);
        pendingBefore_ = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&pipeSignal_);
        sigaddset(&pipeSignal_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal_, &maskBefore_);
    }
    PipeSignalHeldBack(const PipeSignalHeldBack&) = delete;
    PipeSignalHeldBack& operator=(const PipeSignalHeldBack&) = delete;
    ~PipeSignalHeldBack() {
        if (raised_ && !pendingBefore_) Take();
        pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
    }

    void Raised() noexcept { raised_ = true; }

 private:
    void Take() const noexcept {
        const std::timespec noWait{};
        while (sigtimedwait(&pipeSignal_, nullptr, &noWait) == -1 && errno == EINTR) {
        }
    }

    sigset_t pipeSignal_{};
    sigset_t maskBefore_{};
    bool pendingBefore_ = false;
    bool raised_ = false;
};

// A stream that would block is given up as well: the host made it so, and waiting for its reader is
// not this library's to do.
void Write(int stream, std::string_view text) noexcept {
    const int errnoBefore = errno;
    {
        PipeSignalHeldBack pipeSignal;
        while (!text.empty()) {
            const ssize_t written = ::write(stream, text.data(), text.size());
            if (written > 0) {
                text.remove_prefix(static_cast<std::size_t>(written));
            } else if (written == 0 || errno != EINTR) {
                if (written < 0 && errno == EPIPE) pipeSignal.Raised();
                break;
            }
        }
    }
    errno = errnoBefore;
}

}  // namespace

void WriteStandardOutput(std::string_view text) noexcept {
    Write(STDOUT_FILENO, text);
}

void WriteStandardError(std::string_view text) noexcept {
    Write(STDERR_FILENO, text);
}

}  // namespace Oak::Base

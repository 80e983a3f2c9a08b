#include "output.h"
#include "process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <thread>
#include <utility>

namespace tool {

namespace {

bool pointOutputTo(int descriptor) {
    int result = -1;
    do {
        result = dup2(descriptor, STDOUT_FILENO);
    } while (result == -1 && errno == EINTR);
    return result != -1;
}

int openTarget(OutputElsewhere::Target target) {
    return target == OutputElsewhere::Target::Nowhere
               ? open("/dev/null", O_WRONLY | O_CLOEXEC)
               : fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

std::atomic<bool> interruptionRequested{false};
std::atomic<std::int64_t> interruptedAt{0};  // in milliseconds
std::atomic<int> watchersEnd{-1};            // of the pipe that the watcher reads
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
                  std::atomic<std::int64_t>::is_always_lock_free,
              "a signal handler uses them");

/// Usable in a signal handler.
std::int64_t monotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1'000'000;
}

void tellWatcher(char what) {
    if (watchersEnd >= 0) static_cast<void>(!write(watchersEnd, &what, 1));
}

extern "C" void requestInterruption(int signal) {
    constexpr std::int64_t kSameMs = 200;
    const int errorBefore = errno;
    const std::int64_t now = monotonicMs();
    if (!interruptionRequested.exchange(true)) {
        interruptedAt = now;
        tellWatcher('i');
    } else if (now - interruptedAt >= kSameMs) {
        static_cast<void>(std::signal(signal, SIG_DFL));
        static_cast<void>(raise(signal));  // as soon as this returns
    }
    errno = errorBefore;
}

/// Where this program lies, links resolved; empty when the system doesn't say.
std::filesystem::path ownFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace

CommandLine::CommandLine(int argc, char** argv) : values_(argv, argv + argc) {
    values_.push_back(nullptr);
}

std::string environmentText(const char* name) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the program never sets its environment
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

void prepareStandardStreams() {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        // The wrong way round on purpose: what was closed fails on use, as the user is told then.
        // The lowest free descriptor is the one just found closed.
        // cppcheck-suppress leakReturnValNotUsed; it stays open for good
        static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

std::istream& standardInput() {
    return std::cin;
}

bool readerIsGone() {
    return errno == EPIPE;
}

bool inputComesFromTerminal() {
    return isatty(STDIN_FILENO) == 1;
}

bool errorGoesToTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

bool outputGoesToTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

OutputElsewhere::OutputElsewhere(Target target)
    : output_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const int elsewhere = openTarget(target);
    const bool pointed = output_ != -1 && elsewhere != -1 && pointOutputTo(elsewhere);
    if (elsewhere != -1) close(elsewhere);
    if (pointed) return;
    if (output_ != -1) close(output_);
    throw Failure("standard output cannot be redirected");
}

OutputElsewhere::~OutputElsewhere() {
    static_cast<void>(pointOutputTo(output_));
    close(output_);
}

/// What a signal handler may not do is done on this thread, which a pipe wakes.
class Interruption::Watcher {
 public:
    explicit Watcher(std::function<void()> act) {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw Failure("cannot create a pipe for Ctrl-C");
        watchersEnd = ends[1];
        thread_ = std::thread([act = std::move(act), end = ends[0]] {
            char what = 0;
            while (read(end, &what, 1) == -1 && errno == EINTR) {
            }
            if (what == 'i') act();
            close(end);
        });
    }
    ~Watcher() {
        tellWatcher('e');
        thread_.join();
        close(watchersEnd.exchange(-1));
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

 private:
    std::thread thread_;
};

Interruption::Interruption(std::function<void()> act) {
    interruptionRequested = false;
    struct sigaction before {};
    if (sigaction(SIGINT, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) return;
    if (act) watcher_ = std::make_unique<Watcher>(std::move(act));
    struct sigaction action {};
    action.sa_handler = &requestInterruption;
    action.sa_flags = SA_RESTART;  // calls that the signal meets go on
    static_cast<void>(sigaction(SIGINT, &action, nullptr));
}

Interruption::~Interruption() {
    struct sigaction action {};
    static_cast<void>(sigaction(SIGINT, nullptr, &action));
    if (action.sa_handler == &requestInterruption) static_cast<void>(std::signal(SIGINT, SIG_DFL));
}

bool Interruption::requested() const {
    return interruptionRequested;
}

int becomeProgram(const std::string& name, const std::vector<char*>& arguments) {
    std::string first = name;
    std::vector<char*> all{first.data()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    all.push_back(nullptr);

    // Where programs are installed together, then where a build leaves the gateway's.
    const auto folder = ownFolder();
    errno = ENOENT;
    if (!folder.empty()) execv((folder / name).c_str(), all.data());
    if (!folder.empty() && errno == ENOENT)
        execv((folder.parent_path() / "gateway" / name).c_str(), all.data());
    if (errno == ENOENT) execvp(name.c_str(), all.data());
    const int reason = errno;
    if (reason == ENOENT) {
        complain("veltra: " + name + " is neither beside veltra nor in PATH");
        return kNotFound;
    }
    complain("veltra: cannot run " + name + ": " + std::generic_category().message(reason));
    return kCannotRun;
}

bool isReadableByOthers(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

}  // namespace tool

#include "output.h"
#include "process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>

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
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

extern "C" void requestInterruption(int /*signal*/) {
    interruptionRequested = true;
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
    throw Failure("standard output cannot be pointed elsewhere");
}

OutputElsewhere::~OutputElsewhere() {
    static_cast<void>(pointOutputTo(output_));
    close(output_);
}

Interruption::Interruption() {
    interruptionRequested = false;
    struct sigaction before {};
    if (sigaction(SIGINT, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = &requestInterruption;
    // The handler is for once; calls that the signal meets go on.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
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

    const auto folder = ownFolder();
    if (!folder.empty()) execv((folder / name).c_str(), all.data());
    if (folder.empty() || errno == ENOENT) execvp(name.c_str(), all.data());
    const int reason = errno;
    if (reason == ENOENT) {
        complain("veltra: there is no " + name + " beside veltra nor in PATH");
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

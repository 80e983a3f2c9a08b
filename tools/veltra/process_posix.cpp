#include "process_posix.h"

#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

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

}  // namespace

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

bool isReadableByOthers(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

}  // namespace tool

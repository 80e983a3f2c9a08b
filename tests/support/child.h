#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// A child process with pipes to its standard input and output.
class Child {
 public:
    /// `arguments` may begin with settings of the environment.
    explicit Child(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "/usr/bin/env");
        std::vector<char*> argv;
        for (auto& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t pipeSignal;  // to its default: the library must not raise it
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
        if (posix_spawn(&pid_, argv[0], &actions, &attributes, argv.data(), environ) != 0) pid_ = 0;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        toChild_ = fdopen(in[1], "w");
        fromChild_ = fdopen(out[0], "r");
    }
    ~Child() {
        if (pid_ > 0) kill(pid_, SIGKILL);
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
        if (toChild_ != nullptr) fclose(toChild_);
        if (fromChild_ != nullptr) fclose(fromChild_);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Waits until the child has said this line, if it didn't before.
    bool Says(const std::string& line) {
        while (said_.count(line) == 0) {
            const std::string next = Line();
            if (next.empty()) return false;
            said_.insert(next);
        }
        said_.erase(line);
        return true;
    }
    /// The next line.
    std::string Line() {
        std::array<char, 256> text{};
        if (fgets(text.data(), text.size(), fromChild_) == nullptr) return {};
        return {text.data(), strcspn(text.data(), "\n")};
    }
    void Go() {
        fputs("go\n", toChild_);
        fflush(toChild_);
    }
    int Status() {
        int status = -1;
        waitpid(std::exchange(pid_, 0), &status, 0);
        return status;
    }

 private:
    pid_t pid_ = 0;
    FILE* toChild_ = nullptr;
    FILE* fromChild_ = nullptr;
    std::set<std::string> said_;
};

}  // namespace TestSupport

#endif

#ifndef TESTS_SUPPORT_OTHER_PROCESS_H
#define TESTS_SUPPORT_OTHER_PROCESS_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

namespace TestSupport {

/// Runs a function in a process of its own, which has its own memory. What it writes is read here
/// line by line; it returns when its input ends. Made while this process has one thread.
class OtherProcess {
 public:
    using Body = std::function<void(std::FILE* input, std::FILE* output)>;

    explicit OtherProcess(const Body& body) {
        std::array<int, 2> to{};
        std::array<int, 2> from{};
        if (pipe2(to.data(), O_CLOEXEC) != 0 || pipe2(from.data(), O_CLOEXEC) != 0) std::abort();
        id_ = fork();
        if (id_ == 0) {
            close(to[1]);
            body(fdopen(to[0], "r"), LineByLine(fdopen(from[1], "w")));
            _exit(0);
        }
        close(to[0]);
        close(from[1]);
        to_ = LineByLine(fdopen(to[1], "w"));
        from_ = fdopen(from[0], "r");
    }
    ~OtherProcess() {
        std::fclose(to_);
        waitpid(id_, nullptr, 0);
        std::fclose(from_);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    pid_t Id() const { return id_; }
    void Tell(const char* line) { std::fprintf(to_, "%s\n", line); }
    std::string Line() {
        std::array<char, 256> line{};
        if (std::fgets(line.data(), line.size(), from_) == nullptr) std::abort();
        return {line.data(), std::strcspn(line.data(), "\n")};
    }

 private:
    static std::FILE* LineByLine(std::FILE* file) {
        setvbuf(file, nullptr, _IOLBF, BUFSIZ);
        return file;
    }

    pid_t id_ = -1;
    std::FILE* to_ = nullptr;
    std::FILE* from_ = nullptr;
};

}  // namespace TestSupport

#endif

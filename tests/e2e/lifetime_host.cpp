// A host process whose end the test watches:
//
//     lifetime_host STATE URL CA-FILE END
//
// It says where it is on standard output, and goes on when it reads a line.

#include "e2e/lifetime_states.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

void Meet(const char* where) {
    std::printf("%s\n", where);
    std::fflush(stdout);
    std::array<char, 16> line{};
    if (std::fgets(line.data(), line.size(), stdin) == nullptr) _exit(99);
}

int NetworkSockets() {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) continue;
        count += address.ss_family == AF_INET || address.ss_family == AF_INET6 ? 1 : 0;
    }
    return count;
}

/// Whether any export does anything, as none may in a forked child.
bool AnythingWorks() {
    std::string time;
    std::string id = "unchanged";
    const auto comment = std::make_shared<Veltra::LLMComment>("t-1");
    return Veltra::Veltra_Enable() || Veltra::Veltra_IsEnable() || Veltra::Veltra_Unit() ||
           Veltra::Veltra_Disable() || Veltra::Veltra_SetsitiveWords({}, 1) || e2e::LogIn() ||
           Veltra::Veltra_SetDomain("https://a") || Veltra::Veltra_IsDomainValid("https://a") ||
           Veltra::Veltra_IsLLMServiceValid() || Veltra::ConvertTime("-1d", time, 0, true) ||
           Veltra::SetFirstDayOfWeek(Veltra::FirstDayOfWeek::Monday) ||
           Veltra::Veltra_SubmitComments(comment, id) || Veltra::Veltra_CancleComments(id) ||
           e2e::Ask()[0] != '3';
}

bool inChild = false;

[[noreturn]] void EndChild(const std::string& how, char** argv, const std::string& sockets) {
    inChild = true;
    alarm(20);
    if (how == "fork_exec") {
        execl("/proc/self/exe", argv[0], "sockets", sockets.c_str(), nullptr);
        _exit(96);
    }
    const int status = AnythingWorks() ? 95 : 0;
    if (how == "fork_quick") _exit(status);
    exit(status);  // NOLINT(concurrency-mt-unsafe): the exit handlers are the point
}

/// What the child does is harmless, and the parent goes on where its gateway answers.
int Fork(const std::string& how, char** argv, const std::string& sockets) {
    const pid_t child = fork();
    if (child == 0) EndChild(how, argv, sockets);
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0) return 94;
    const std::string_view state = argv[1];
    if (state != "waiting" && state != "started" && state != "stopped" && state != "asking") {
        return 0;
    }
    return e2e::LogIn() && e2e::Ask()[0] == 'H' ? 0 : 93;
}

}  // namespace

/// Asked by the leak check at exit. In a forked child it would miss the stacks of the threads that
/// are left behind in the parent, and take what they hold for lost.
extern "C" int __lsan_is_turned_off() {  // NOLINT(bugprone-reserved-identifier)
    return inChild ? 1 : 0;
}

int main(int argc, char** argv) {
    // What a forked child of this host has become: it was told how many sockets are not ours.
    if (argc == 3) return std::to_string(NetworkSockets()) == argv[2] ? 0 : 92;
    if (argc < 5) return 97;
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const std::string sockets = std::to_string(NetworkSockets());
    if (!lifetime::Reach(argv[1], argv[2], argv[3], &Meet)) _exit(98);

    const std::string end = argv[4];
    alarm(20);  // an end that hangs ends here
    if (end.starts_with("fork")) return Fork(end, argv, sockets);
    if (end == "exit") std::exit(0);  // NOLINT(concurrency-mt-unsafe)
    if (end == "quick") _exit(0);
    if (end == "throw") throw std::runtime_error("that nobody catches");
    if (end == "exit_in_thread") {
        std::thread([] { std::exit(0); }).detach();  // NOLINT(concurrency-mt-unsafe)
        for (;;)
            pause();
    }
    return 0;
}

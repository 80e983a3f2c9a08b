// A host process whose end the test watches:
//
//     lifetime_host HOW URL CA-FILE
//
// It says where it is on standard output, and goes on when it reads a line.

#include "e2e/e2e_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

void Meet(const char* where) {
    std::printf("%s\n", where);
    std::fflush(stdout);
    std::array<char, 16> line{};
    if (std::fgets(line.data(), line.size(), stdin) == nullptr) _exit(99);
}

void Fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    _exit(98);
}

bool inChild = false;

int ForkAndCheck() {
    const pid_t child = fork();
    if (child == 0) {
        inChild = true;
        std::string time;
        const bool anything =
            Veltra::Veltra_Enable() || Veltra::Veltra_IsEnable() || Veltra::Veltra_Unit() ||
            Veltra::Veltra_Disable() || Veltra::Veltra_SetsitiveWords({}, 1) || e2e::LogIn() ||
            Veltra::Veltra_SetDomain("https://a") || Veltra::Veltra_IsDomainValid("https://a") ||
            Veltra::Veltra_IsLLMServiceValid() || Veltra::ConvertTime("-1d", time, 0, true) ||
            Veltra::SetFirstDayOfWeek(Veltra::FirstDayOfWeek::Monday) || e2e::Ask()[0] != '3';
        exit(anything ? 1 : 0);  // NOLINT(concurrency-mt-unsafe): the exit handlers are the point
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 && e2e::Ask()[0] == 'H' ? 0 : 1;
}

}  // namespace

/// Asked by the leak check at exit. In a forked child it would miss the stacks of the threads that
/// are left behind in the parent, and take what they hold for lost.
extern "C" int __lsan_is_turned_off() {  // NOLINT(bugprone-reserved-identifier)
    return inChild ? 1 : 0;
}

int main(int argc, char** argv) {
    if (argc < 4) return 97;
    const std::string how = argv[1];
    Oak::Net::HttpClientOptions options;
    options.caFile = argv[3];
    options.totalTimeoutMs = 1000;
    Oak::Net::SetHttpClientOptions(options);
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(argv[2])) Fail("no domain");
    Meet("domain");
    if (!e2e::LogIn()) Fail("no login");
    Meet("ready");

    if (how == "fork") return ForkAndCheck();
    if (how == "exit") std::exit(0);  // NOLINT(concurrency-mt-unsafe)
    if (how == "quick") _exit(0);
    if (how == "exit-in-thread") {
        std::thread([] { std::exit(0); }).detach();  // NOLINT(concurrency-mt-unsafe)
        for (;;)
            pause();
    }
    if (how == "busy") {
        for (int i = 0; i < 4; ++i) {
            std::thread([] {
                for (;;)
                    e2e::Ask();
            }).detach();
        }
        Meet("asking");
    }
    return 0;
}

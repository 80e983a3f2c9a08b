// A host that ends, or unloads the library, in the middle of things:
//
//     lifetime_host STATE END
//
// It links the import library. Its status is 0 when it came that far, and the test's time limit
// tells a hang.

#include "e2e/calls.h"
#include "windows/gateways.h"

#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 98);
    std::abort();
}

void AwaitStalled(unsigned long calls) {
    const ULONGLONG end = GetTickCount64() + 20000;
    while (gateways::Stalled() != calls) {
        if (GetTickCount64() > end) Fail("the calls did not come to stall");
        std::this_thread::yield();
    }
}

void KeepAsking() {
    for (int i = 0; i < 4; ++i) {
        std::thread([] {
            for (;;)
                e2e::Ask();
        }).detach();
    }
}

/// One host at a time has calls that stall.
void Reach(std::string_view state) {
    const bool stalls = state == "probing" || state == "asking_stalled";
    if (stalls) AwaitStalled(0);  // those of the host before are gone
    Oak::Net::HttpClientOptions options;
    options.totalTimeoutMs = 20000;
    Oak::Net::SetHttpClientOptions(options);
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(gateways::Read(stalls ? "leading" : "plain")) || !e2e::LogIn())
        Fail("no login");
    if (state == "asked" && e2e::Ask()[0] != 'H') Fail("no answer");
    if (state == "probing") AwaitStalled(1);
    if (state == "stopped" && !Veltra::Veltra_Unit()) Fail("not stopped");
    if (state == "stopping") std::thread([] { Veltra::Veltra_Unit(); }).detach();
    if (state == "asking" || state == "asking_stalled") KeepAsking();
    if (state == "asking_stalled") AwaitStalled(5);
}

void Throw(int, const char*, const char*, void*) {
    throw std::runtime_error("from a handler");
}

/// What one module throws stays out of the other, whose own C++ library may be another.
void ThrowFromHandlers() {
    qlog_set_handler(&Throw, nullptr, 2);
    for (int round = 0; round < 50; ++round)
        if (e2e::Ask()[0] != 'H' || !e2e::LogIn()) Fail("no answer");
    if (!Veltra::Veltra_Disable()) Fail("not stopped");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 97;
    const std::string_view end = argv[2];
    Reach(argv[1]);
    if (end == "handler_throws") ThrowFromHandlers();
    if (end == "exit") std::exit(0);
    if (end == "quick") _exit(0);
    if (end == "exit_process") ExitProcess(0);
    if (end == "terminate") TerminateProcess(GetCurrentProcess(), 0);
    if (end == "exit_in_thread") {
        std::thread([] { std::exit(0); }).detach();
        Sleep(INFINITE);
    }
    return 0;
}

#ifndef VELTRA_TESTS_LIFETIME_STATES_H
#define VELTRA_TESTS_LIFETIME_STATES_H

#include "e2e/e2e_support.h"

#include <cstdint>
#include <cstdio>
#include <latch>
#include <string_view>
#include <thread>

/// The states in which a host of lifetime_test may end. Host and plugin share them.
namespace lifetime {

/// Ten hosts log in at a time, which takes long enough without the thread sanitizer.
constexpr std::uint32_t kPatienceMs =
    std::string_view(LIFETIME_SANITIZERS).find("thread") == std::string_view::npos ? 3000 : 10000;

/// Says where the host is, and returns when the test lets it go on.
using Meet = void (*)(const char* where);

/// Starts threads that query and submit feedback until the process ends.
inline void KeepBusy(std::latch& begun) {
    for (const auto call : {+[] { e2e::Ask(); }, +[] { e2e::Submit({"AQID"}); }}) {
        for (int i = 0; i < 2; ++i) {
            std::thread([call, &begun] {
                call();
                begun.count_down();
                for (;;)
                    call();
            }).detach();
        }
    }
}

/// Brings library and host into the state, with the gateway's part being the test's. False when
/// something failed on the way.
inline bool Reach(std::string_view state, const char* url, const char* ca, Meet meet) {
    Oak::Net::HttpClientOptions options;
    options.caFile = ca;
    options.totalTimeoutMs = state == "asking_stalled" ? 5000 : kPatienceMs;
    Oak::Net::SetHttpClientOptions(options);
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(url)) return false;
    meet("domain");
    if (!e2e::LogIn()) return false;
    if (state == "started") return true;
    meet("ready");

    static std::latch begun(4);
    if (state == "stopped") return Veltra::Veltra_Unit();
    if (state == "disabled") return Veltra::Veltra_Disable();
    if (state == "stopping") std::thread([] { Veltra::Veltra_Unit(); }).detach();
    if (state == "jumping") {
        if (e2e::Ask()[0] != 'H') return false;
        meet("asked");
        return e2e::Ask()[0] == 'H';
    }
    if (state == "asking") {
        // Feedback is echoed there, and nobody reads any more.
        if (std::freopen("/dev/null", "w", stdout) == nullptr) return false;
        KeepBusy(begun);
        begun.wait();
    }
    if (state == "asking_stalled") {
        KeepBusy(begun);
        meet("asking");
    }
    return true;
}

}  // namespace lifetime

#endif

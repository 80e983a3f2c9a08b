// How a host may end: from every state of the monitor and of its own threads, in every way. The end
// comes in time with the status that belongs to it, no sanitizer reports, nothing stays mapped.

#include "e2e/e2e_support.h"
#include "support/child.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

/// Many servers run in this process. The first request to any of them makes tables of the HTTP
/// library, which is not compiled with the sanitizer: it misses the flag that guards them, and
/// calls each look at them a race. The library under test runs in other processes.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "race:libcpp-httplib.so\n";
}

namespace {

using TestSupport::Child;

/// A gateway over HTTPS and what it takes to end a host in some state.
class Stage {
 public:
    Stage() : server(e2e::Serve(true)) {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_TRUE(server.start());
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
    }

    /// Lets a host come into the state and go on to its end; false when it didn't come that far.
    bool Reach(Child& host, const std::string& state) {
        const bool stalls =
            state != "started" && state != "waiting" && !state.starts_with("asking");
        const bool renews = state == "requesting" || state == "pausing";
        const bool onlyFirst = renews || state == "stopped" || state == "disabled";
        if (!host.Says("domain")) return false;
        if (stalls) Fault(gateway::kQueryPath, gateway::FaultKind::Stall, onlyFirst ? 1 : -1);
        host.Go();
        if (state == "started") return true;
        if (!host.Says("ready") || (stalls && !Stalled(1))) return false;
        if (renews) {
            // The check goes on to a renewal when its probe has got an answer.
            Fault(gateway::kTokenPath,
                  state == "pausing" ? gateway::FaultKind::Status : gateway::FaultKind::Stall);
            server.resetStalled();
        }
        if (state == "requesting" && !(Requested(gateway::kTokenPath, 2) && Stalled(1)))
            return false;
        if ((state == "waiting" || state == "pausing") && !host.Says(state)) return false;
        if (state == "asking_stalled") {
            if (!host.Says("waiting")) return false;  // the monitor stays out of it
            for (const auto path : {gateway::kQueryPath, gateway::kFeedbackPath})
                Fault(path, gateway::FaultKind::Stall);
            host.Go();
            if (!host.Says("asking") || !Stalled(4)) return false;
        }
        host.Go();
        return true;
    }

    void Fault(std::string_view path, gateway::FaultKind kind, int times = -1) {
        server.addFault({std::string(path), kind, 0, "", "", times});
    }
    bool Stalled(std::size_t count) {
        return server.waitUntil([&] { return server.stalled() >= count; });
    }
    bool Requested(std::string_view path, std::ptrdiff_t count) {
        return server.waitUntil([&] {
            const auto requests = server.requests();
            return count <= std::count_if(requests.begin(), requests.end(),
                                          [&](const auto& each) { return each.path == path; });
        });
    }

    gateway::Gateway server;
    std::unique_ptr<e2e::TemporaryFile> ca;
};

constexpr bool kSanitized = sizeof LIFETIME_SANITIZERS > 1;

class LifetimeTest : public testing::TestWithParam<const char*> {};

/// Ends that leave calls of host threads under way are for the process alone, not for an unload.
bool Fits(const std::string& state, const std::string& end) {
    const bool callsUnderWay = state == "stopping" || state.starts_with("asking");
    if (end == "unload") return !callsUnderWay;
    // The sanitizers' allocators don't survive a fork in the middle of other threads' calls.
    if (end == "fork_exit" || end == "fork_quick") return !kSanitized || !callsUnderWay;
    return true;
}

void EndIn(const std::string& state, const std::string& end) {
    Stage stage;
    // Waits and renewals of the monitor are seen from outside by a library with a clock for it.
    const bool watched = state == "waiting" || state == "requesting" || state == "pausing" ||
                         state == "asking_stalled";
    // A process that leaves between the monitor's end and its join leaves an unjoined thread.
    const char* const given = std::getenv("TSAN_OPTIONS");  // NOLINT(concurrency-mt-unsafe)
    const std::string tsanOptions = given == nullptr ? "" : given;
    const bool leaves = end == "quick" && state == "stopping";
    Child host({"TSAN_OPTIONS=" + tsanOptions + (leaves ? ":report_thread_leaks=0" : ""),
                watched ? "LD_LIBRARY_PATH=" LIFETIME_WATCHED : "LIFETIME=plain",
                end == "unload" ? LIFETIME_LOADER : LIFETIME_HOST, state, stage.server.baseUrl(),
                stage.ca->Path(), end == "unload" ? "1" : end, LIFETIME_PLUGIN});
    ASSERT_TRUE(stage.Reach(host, state)) << state << ", " << end;
    const auto begun = std::chrono::steady_clock::now();
    const int status = host.Status();
    // Promised of a monitor that is stalled in its probe, whose exchange had three seconds.
    if (state == "probing" && !kSanitized) {
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2)) << end;
    }
    const int code = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    EXPECT_EQ(code, end == "throw" ? -SIGABRT : 0) << state << ", " << end;
}

INSTANTIATE_TEST_SUITE_P(From, LifetimeTest,
                         testing::Values("started", "waiting", "probing", "requesting", "pausing",
                                         "stopping", "stopped", "disabled", "asking",
                                         "asking_stalled"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(LifetimeTest, EndsCleanly) {
    std::vector<std::thread> ends;
    for (const std::string end : {"return", "exit", "exit_in_thread", "quick", "throw", "fork_exit",
                                  "fork_quick", "fork_exec", "unload"}) {
        if (Fits(GetParam(), end)) ends.emplace_back(&EndIn, GetParam(), end);
    }
    for (auto& end : ends)
        end.join();
}

TEST(LifetimeTest, UnloadsFiftyTimes) {
    Stage stage;
    Child host({LIFETIME_LOADER, "ready", stage.server.baseUrl(), stage.ca->Path(), "50",
                LIFETIME_PLUGIN});
    for (int round = 0; round < 50; ++round) {
        for (const char* line : {"domain", "ready"}) {
            ASSERT_TRUE(host.Says(line)) << "round " << round;
            host.Go();
        }
    }
    EXPECT_EQ(host.Status(), 0);
}

/// With the system's own library, and the system clock alone being another's.
TEST(LifetimeTest, SystemClockJumpsUnderWay) {
    if (kSanitized || !std::filesystem::exists(LIFETIME_FAKETIME)) {
        GTEST_SKIP() << "needs the package faketime and a library without sanitizers";
    }
    Stage stage;
    const e2e::TemporaryFile clock("+0");
    Child host({"LD_PRELOAD=" LIFETIME_FAKETIME, "FAKETIME_DONT_FAKE_MONOTONIC=1",
                "FAKETIME_NO_CACHE=1", "FAKETIME_TIMESTAMP_FILE=" + clock.Path(), LIFETIME_HOST,
                "jumping", stage.server.baseUrl(), stage.ca->Path(), "return"});
    ASSERT_TRUE(host.Says("domain"));
    stage.Fault(gateway::kQueryPath, gateway::FaultKind::Stall, 1);
    host.Go();
    ASSERT_TRUE(host.Says("ready") && stage.Stalled(1));
    host.Go();
    ASSERT_TRUE(host.Says("asked"));
    EXPECT_EQ(stage.server.tokensIssued(), 1U);
    std::ofstream(clock.Path()) << "+13h";
    stage.server.resetStalled();  // the monitor's check goes on
    ASSERT_TRUE(stage.server.waitUntil([&] { return stage.server.tokensIssued() == 2; }));
    host.Go();
    EXPECT_EQ(host.Status(), 0);
    EXPECT_EQ(stage.server.tokensIssued(), 2U);
}

}  // namespace

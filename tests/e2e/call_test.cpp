// Calls that the host cancels, or bounds in time, wherever they are: when they return, what they
// report, and what they leave behind.

#include "e2e/e2e_support.h"
#include "e2e/given_up.h"
#include "support/sockets.h"

#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using e2e::Ask;
using e2e::GiveUp;
using e2e::LogIn;
using e2e::Submit;
using gateway::FaultKind;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Veltra::CallOutcome;

constexpr milliseconds kSoon{100};

/// A port of loopback at which nobody accepts: a handshake gets no answer there, and when it is
/// full not even a connection is made.
class DeafPort {
 public:
    explicit DeafPort(bool full) : listener_(TestSupport::NewSocket()) {
        const sockaddr_in address = TestSupport::Listen(listener_, full ? 0 : 8);
        for (int i = 0; full && i < 4; ++i) {
            fillers_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            connect(fillers_.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
        url_ = (full ? "http://127.0.0.1:" : "https://127.0.0.1:") +
               std::to_string(ntohs(address.sin_port));
    }
    ~DeafPort() {
        for (const int filler : fillers_)
            TestSupport::CloseSocket(filler);
        TestSupport::CloseSocket(listener_);
    }
    DeafPort(const DeafPort&) = delete;
    DeafPort& operator=(const DeafPort&) = delete;

    const std::string& Url() const { return url_; }

 private:
    int listener_;
    std::vector<int> fillers_;
    std::string url_;
};

std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class CallTest : public testing::TestWithParam<bool> {
 protected:
    ~CallTest() override {
        Veltra::Veltra_CancelAll();
        Veltra::Veltra_Disable();
        Oak::Net::SetHttpClientOptions({});
        qlog_set_handler(nullptr, nullptr, 4);
    }

    void SetUp() override {
        ASSERT_TRUE(server.start()) << server.reason();
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
        Oak::Net::HttpClientOptions http;
        if (GetParam()) http.caFile = ca->Path();
        Oak::Net::SetHttpClientOptions(http);
        Veltra::Veltra_SetBodyEcho(false);
        qlog_set_handler(&CallTest::Record, this, 4);
        Veltra::Veltra_Enable();
        ASSERT_TRUE(Veltra::Veltra_SetDomain(server.baseUrl()));
        ASSERT_TRUE(LogIn());
        Veltra::Veltra_Unit();
        ASSERT_NE(Ask().find("World"), std::string::npos);
    }

    static void Record(int, const char*, const char* message, void* context) {
        auto& test = *static_cast<CallTest*>(context);
        if (std::strstr(message, "Update token failed") != nullptr) ++test.failedUpdates;
        if (std::strstr(message, "errcode:503") != nullptr && test.cancelsInHandler)
            test.control.Cancel();
    }

    void Fault(std::string_view path, FaultKind kind, std::int64_t number = 0) {
        const bool isPrefix = path == gateway::kStoragePrefix;
        gateway::Fault fault;
        fault.path = std::string(path) + (isPrefix ? "" : "$");
        fault.kind = kind;
        fault.number = number;
        fault.code = "77";
        server.addFault(fault);
    }
    bool Stalled(std::size_t count = 1) {
        return server.waitUntil([=, this] { return server.stalled() == count; });
    }
    std::size_t Queries() {
        const auto all = server.requests();
        return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [](const auto& each) {
            return each.path == gateway::kQueryPath;
        }));
    }
    /// No token is good any more; a renewal finds this at the token's endpoint.
    void RejectTokens(FaultKind kind) {
        server.expireTokens();
        Fault(gateway::kTokenPath, kind);
        failedUpdates = 0;
        server.clearRequests();
    }

    /// Everything is as it was before a call that was given up.
    void ExpectNothingLeft(std::size_t descriptors, const std::string& tokenBefore) {
        server.clearFaults();
        server.resetStalled();
        EXPECT_TRUE(Veltra::Veltra_IsLLMServiceValid());
        server.clearRequests();
        EXPECT_NE(Ask().find("World"), std::string::npos);
        ASSERT_FALSE(server.requests().empty());
        EXPECT_EQ(server.requests()[0].header("Authorization"), tokenBefore);
        EXPECT_TRUE(server.waitUntil([=] { return OpenDescriptors() <= descriptors; }))
            << OpenDescriptors() << " descriptors, " << descriptors << " before";
    }
    std::string TokenInUse() {
        server.clearRequests();
        Ask();
        return server.requests().at(0).header("Authorization");
    }

    gateway::Gateway server{e2e::Serve(GetParam())};
    std::unique_ptr<e2e::TemporaryFile> ca;
    Veltra::CCallControl control;
    std::atomic<int> failedUpdates{0};
    std::atomic<bool> cancelsInHandler{false};
    DeafPort swallowing{true};
    DeafPort silent{false};
};

INSTANTIATE_TEST_SUITE_P(Schemes, CallTest, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

TEST_P(CallTest, ReturnsSoonWhereverItIs) {
    const auto query = [] { return Ask()[0] != '2'; };
    const auto probe = [](const std::string& domain) {
        return [domain] { return Veltra::Veltra_SetDomain(domain); };
    };
    const struct {
        const char* name;
        std::string_view path;  ///< Of the fault that holds the call up; none: nothing is heard.
        FaultKind kind;
        std::function<bool()> call;
    } states[] = {
        {"connecting", "", {}, probe(swallowing.Url())},
        {"TLS handshake", "", {}, probe(silent.Url())},
        {"head of a probe", gateway::kQueryPath, FaultKind::Stall, probe(server.baseUrl())},
        {"head of an answer", gateway::kQueryPath, FaultKind::Stall, query},
        {"body of an answer", gateway::kQueryPath, FaultKind::StallInBody, query},
        {"login", gateway::kTokenPath, FaultKind::StallInBody, [] { return LogIn(); }},
        {"picture", gateway::kStoragePrefix, FaultKind::Stall, [] { return Submit({"AQID"}); }},
        {"feedback", gateway::kFeedbackPath, FaultKind::Stall, [] { return Submit({}); }},
    };
    const std::string token = TokenInUse();
    for (const auto& state : states) {
        // With the gateway's one authority: reading all of the system's takes longer than a call may.
        if (!GetParam() && std::string_view(state.name) == "TLS handshake") continue;
        for (const bool byLimit : {false, true}) {
            SCOPED_TRACE(std::string(state.name) + (byLimit ? ", by its limit" : ", cancelled"));
            const std::size_t descriptors = OpenDescriptors();
            if (!state.path.empty()) Fault(state.path, state.kind, 3);
            const auto reached = [&] {
                if (state.path.empty()) std::this_thread::sleep_for(milliseconds(50));
                return state.path.empty() || Stalled();
            };
            GiveUp(byLimit, kSoon, reached, state.call);
            ExpectNothingLeft(descriptors, token);
        }
    }
}

TEST_P(CallTest, ReturnsSoonFromWaitsForARenewal) {
    const auto query = [] { return Ask() != "2: client send message failed"; };
    const auto stalls = [this] { return Stalled(); };
    for (const bool byLimit : {false, true}) {
        SCOPED_TRACE(byLimit ? "by its limit" : "cancelled");
        // Its own renewal's exchange.
        RejectTokens(FaultKind::Stall);
        GiveUp(byLimit, kSoon, stalls, query);
        server.clearFaults();
        server.resetStalled();

        // A renewal that another thread makes.
        RejectTokens(FaultKind::Stall);
        std::thread other([] { EXPECT_EQ(Ask(), "2: client send message failed"); });
        ASSERT_TRUE(Stalled());
        const auto waits = [this] { return server.waitUntil([this] { return Queries() == 4; }); };
        GiveUp(byLimit, kSoon, waits, query);
        EXPECT_EQ(server.stalled(), 1U) << "the other thread's is not touched";
        Veltra::Veltra_CancelAll();
        other.join();
        server.clearFaults();
        server.resetStalled();

        // The pause of a minute after a renewal that failed.
        RejectTokens(FaultKind::RefuseCode);
        const auto pauses = [this] {
            return server.waitUntil([this] { return failedUpdates == 1; });
        };
        GiveUp(byLimit, kSoon, pauses, query);
        server.clearFaults();
        ASSERT_TRUE(LogIn()) << "the renewal failed before its pause";
        Veltra::Veltra_Unit();
    }
}

TEST_P(CallTest, MakesNoAttemptOnceItIsOver) {
    const Veltra::CCallScope scope(control);
    Fault(gateway::kQueryPath, FaultKind::Status, 503);
    server.clearRequests();
    cancelsInHandler = true;
    EXPECT_EQ(Ask(), "2: client send message failed");
    EXPECT_EQ(Queries(), 1U) << "cancelled between two attempts";
    auto report = Veltra::Veltra_LastCall();
    EXPECT_EQ(report.Outcome(), CallOutcome::Cancelled);
    EXPECT_EQ(report.HttpStatus(), 503);
    EXPECT_EQ(report.Attempts(), 1);
    cancelsInHandler = false;
    server.clearFaults();

    EXPECT_TRUE(control.IsCancelled());
    EXPECT_EQ(Ask(), "2: client send message failed") << "refused before it begins";
    EXPECT_FALSE(LogIn());
    EXPECT_FALSE(Submit({"AQID"}));
    EXPECT_EQ(Veltra::Veltra_LastCall().Attempts(), 0);
    EXPECT_EQ(server.requests().size(), 1U);
    control.Reset();
    EXPECT_NE(Ask().find("World"), std::string::npos);
    EXPECT_EQ(Veltra::Veltra_LastCall().Outcome(), CallOutcome::Succeeded);
}

TEST_P(CallTest, OneCancelEndsAllThreadsAndScopesNest) {
    Fault(gateway::kQueryPath, FaultKind::Stall);
    const Veltra::CCallControl inner;
    std::atomic<int> cancelled{0};
    constexpr int kThreads = 20;  // more than reports have parts
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            const Veltra::CCallScope outer(control);
            const Veltra::CCallScope nested(inner);
            const std::string traceId = "t-" + std::to_string(i);
            EXPECT_EQ(Ask("World", traceId), "2: client send message failed");
            const auto report = Veltra::Veltra_LastCall();
            EXPECT_EQ(report.TraceId(), traceId) << "never another thread's";
            if (report.Outcome() == CallOutcome::Cancelled) ++cancelled;
        });
    ASSERT_TRUE(Stalled(kThreads));
    const auto begun = Clock::now();
    control.Cancel();
    for (auto& thread : threads)
        thread.join();
    EXPECT_LT(Clock::now() - begun, milliseconds(500));
    EXPECT_EQ(cancelled, kThreads);
}

TEST_P(CallTest, ClosesWithinASecondWhileTheMonitorStalls) {
    Fault(gateway::kQueryPath, FaultKind::Stall);
    ASSERT_TRUE(LogIn());  // its monitor's first probe stalls
    ASSERT_TRUE(Stalled());
    std::thread query([] { EXPECT_EQ(Ask(), "2: client send message failed"); });
    ASSERT_TRUE(Stalled(2));
    const auto begun = Clock::now();
    EXPECT_TRUE(Veltra::Veltra_CancelAll());
    query.join();
    EXPECT_TRUE(Veltra::Veltra_Disable());
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(1));
    server.clearFaults();
    server.resetStalled();
    Veltra::Veltra_Enable();
    EXPECT_NE(Ask().find("World"), std::string::npos) << "what was cut changed no flag";
}

/// A session of before would show its certificate again.
TEST_P(CallTest, AFailedCertificateRetiresAllThatWasKept) {
    if (!GetParam()) return;
    Fault(gateway::kQueryPath, FaultKind::Delay, 100);
    std::vector<std::jthread> crew;
    for (int i = 0; i < 5; ++i)  // at once, for more connections than the attempts below use up
        crew.emplace_back([] { Ask(); });
    crew.clear();
    server.clearFaults();
    server.setCertificate(gateway::Certificate::WrongHost);
    const std::string port = server.baseUrl().substr(server.baseUrl().rfind(':'));
    EXPECT_FALSE(Veltra::Veltra_IsDomainValid("https://localhost" + port));
    EXPECT_EQ(Veltra::Veltra_LastCall().Outcome(), CallOutcome::NotTrusted);
    server.setCertificate(gateway::Certificate::Good);
    const auto connections = server.connections();
    EXPECT_NE(Ask().find("World"), std::string::npos);
    EXPECT_EQ(server.connections(), connections + 1);
}

TEST_P(CallTest, LogsOut) {
    ASSERT_TRUE(LogIn());
    EXPECT_TRUE(Veltra::Veltra_Logout());
    server.clearRequests();
    EXPECT_EQ(Ask(), "3: llm service is not can be used");
    EXPECT_EQ(Veltra::Veltra_LastCall().Outcome(), CallOutcome::NotUsable);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_FALSE(LogIn("bad"));
    const auto report = Veltra::Veltra_LastCall();
    EXPECT_EQ(report.Outcome(), CallOutcome::Refused);
    EXPECT_FALSE(report.GatewayMessage().empty()) << "why the gateway refused the login";
    EXPECT_EQ(server.requests().size(), 1U) << "its own pair alone";
    EXPECT_TRUE(Veltra::Veltra_Logout());
    EXPECT_TRUE(LogIn());
    EXPECT_NE(Ask().find("World"), std::string::npos);
}

}  // namespace

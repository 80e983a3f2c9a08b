// The real library over real sockets against the local gateway. The library's state is the
// process's, so ctest runs each case in a process of its own.

#include "e2e/e2e_support.h"

#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

namespace {

using e2e::Ask;
using e2e::LogIn;
using gateway::FaultKind;

class GatewayTest : public testing::TestWithParam<bool> {
 protected:
    ~GatewayTest() override {
        Veltra::Veltra_Disable();
        Oak::Net::SetHttpClientOptions({});
        qlog_set_handler(nullptr, nullptr, 4);
    }

    /// Logs in; the monitor's own connection stays out of the way.
    void SetUp() override {
        ASSERT_TRUE(server.start()) << server.reason();
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
        Oak::Net::HttpClientOptions http;
        if (GetParam()) http.caFile = ca->Path();
        Oak::Net::SetHttpClientOptions(http);
        qlog_set_handler(&GatewayTest::Record, this, 4);
        Veltra::Veltra_Enable();
        ASSERT_TRUE(Veltra::Veltra_SetDomain(server.baseUrl()));
        ASSERT_TRUE(LogIn());
        Veltra::Veltra_Unit();
        server.clearRequests();
    }

    static void Record(int, const char*, const char* message, void* context) {
        auto& test = *static_cast<GatewayTest*>(context);
        if (std::strstr(message, "Update token failed") != nullptr) ++test.failedUpdates;
    }
    std::size_t RequestsOf(std::string_view path) {
        const auto requests = server.requests();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(),
                          [&](const gateway::Request& request) { return request.path == path; }));
    }

    gateway::Gateway server{e2e::Serve(GetParam())};
    std::unique_ptr<e2e::TemporaryFile> ca;
    std::atomic<int> failedUpdates{0};
};

INSTANTIATE_TEST_SUITE_P(Schemes, GatewayTest, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

TEST_P(GatewayTest, OneThreadKeepsOneConnection) {
    Ask();
    const auto before = server.connections();
    for (int i = 0; i < 2000; ++i)
        ASSERT_NE(Ask().find("World"), std::string::npos) << i;
    EXPECT_EQ(server.connections(), before);

    // Connections that the server closes while they are idle cost no query.
    for (int i = 0; i < 20; ++i) {
        server.closeIdleConnections();
        ASSERT_NE(Ask().find("World"), std::string::npos) << i;
    }
}

TEST_P(GatewayTest, MonitorStopsWithinASecond) {
    using Clock = std::chrono::steady_clock;
    const auto timeOfUnit = [] {
        const auto begin = Clock::now();
        EXPECT_TRUE(Veltra::Veltra_Unit());
        return Clock::now() - begin;
    };
    ASSERT_TRUE(LogIn());
    ASSERT_TRUE(server.waitUntil([this] { return RequestsOf(gateway::kQueryPath) == 1; }));
    EXPECT_LT(timeOfUnit(), std::chrono::seconds(1)) << "waits for its next check";

    // A query's check in its one-minute pause ends with it.
    server.expireTokens();
    server.addFault({std::string(gateway::kTokenPath), FaultKind::RefuseCode, 0, "77", "no"});
    server.clearRequests();
    std::thread query([] { EXPECT_EQ(Ask()[0], '1'); });
    ASSERT_TRUE(server.waitUntil([this] { return failedUpdates > 0; }));
    const std::size_t requests = RequestsOf(gateway::kTokenPath);
    const auto unit = Clock::now();
    EXPECT_LT(timeOfUnit(), std::chrono::seconds(1));
    query.join();
    EXPECT_LT(Clock::now() - unit, std::chrono::seconds(5)) << "not the whole minute";
    EXPECT_EQ(RequestsOf(gateway::kTokenPath), requests) << "no renewal after a cut pause";
}

TEST_P(GatewayTest, NothingOnStandardOutput) {
    testing::internal::CaptureStdout();
    EXPECT_TRUE(LogIn());
    Ask();
    server.addFault({"", FaultKind::Status, 500, "", ""});
    Ask();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace

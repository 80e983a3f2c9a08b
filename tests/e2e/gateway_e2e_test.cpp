// The real library over real sockets against the local gateway. The library's state is the
// process's, so ctest runs each case in a process of its own.

#include "e2e/e2e_support.h"

#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using e2e::Ask;
using e2e::LogIn;
using e2e::Serve;
using gateway::FaultKind;

constexpr const char* kNotSent = "2: client send message failed";

class GatewayTest : public testing::TestWithParam<bool> {
 protected:
    GatewayTest() {
        qlog_set_handler(&GatewayTest::Record, this, 4);
        Veltra::Veltra_Enable();
    }
    ~GatewayTest() override {
        Veltra::Veltra_Disable();
        Oak::Net::SetHttpClientOptions({});
        qlog_set_handler(nullptr, nullptr, 4);
    }

    /// Starts the gateway, trusts it and makes it the configured domain.
    void Start(gateway::Options options) {
        server = std::make_unique<gateway::Gateway>(std::move(options));
        ASSERT_TRUE(server->start()) << server->reason();
        ca = std::make_unique<e2e::TemporaryFile>(server->caPem());
        if (!server->caPem().empty()) http.caFile = ca->Path();
        Oak::Net::SetHttpClientOptions(http);
    }
    /// The same, and logs in; the monitor's own connection stays out of the way.
    void StartLoggedIn(bool tls) {
        Start(Serve(tls));
        ASSERT_TRUE(Veltra::Veltra_SetDomain(server->baseUrl()));
        ASSERT_TRUE(LogIn());
        Veltra::Veltra_Unit();
        server->clearRequests();
    }

    static void Record(int level, const char* tag, const char* message, void* context) {
        auto& test = *static_cast<GatewayTest*>(context);
        const std::lock_guard<std::mutex> lock(test.mutex);
        test.records += std::to_string(level) + " " + tag + " " + message + "\n";
    }
    std::string Records() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(records, {});
    }
    std::size_t RequestsOf(std::string_view path) {
        const auto requests = server->requests();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(),
                          [&](const gateway::Request& request) { return request.path == path; }));
    }

    std::unique_ptr<gateway::Gateway> server;
    std::unique_ptr<e2e::TemporaryFile> ca;
    Oak::Net::HttpClientOptions http;
    std::mutex mutex;
    std::string records;
};

INSTANTIATE_TEST_SUITE_P(Schemes, GatewayTest, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

TEST_P(GatewayTest, RequestsOnTheWire) {
    Start(Serve(GetParam()));
    ASSERT_TRUE(Veltra::Veltra_SetDomain(server->baseUrl()));
    ASSERT_FALSE(LogIn("bad"));
    ASSERT_TRUE(LogIn());
    Veltra::Veltra_Unit();
    EXPECT_EQ(Ask("Ada"), Ask("Ada"));
    EXPECT_NE(Ask("Ada").find("Ada"), std::string::npos);

    const auto requests = server->requests();
    ASSERT_GE(requests.size(), 4U);
    const auto names = [](const gateway::Request& request) {
        std::string all;
        for (const auto& header : request.headers)
            all += header.first + " ";
        return all;
    };
    const auto& probe = requests[0];
    EXPECT_EQ(probe.path, gateway::kQueryPath);
    EXPECT_EQ(probe.body, "");
    EXPECT_EQ(names(probe), "Accept Content-Length Content-Type Host ");
    const auto& refused = requests[1];
    EXPECT_EQ(refused.path, gateway::kTokenPath);
    EXPECT_EQ(refused.body, R"({"appKey":"bad","secretKey":"secret"})");
    EXPECT_EQ(refused.header("Content-Type"), "application/json");
    EXPECT_EQ(names(refused), "Accept Content-Length Content-Type Host ");
    const auto& query = requests.back();
    EXPECT_EQ(
        query.body,
        R"({"traceId":"t-1","promptKey":"greeting","replaceElements":{"name":"Ada","place":"here"},)"
        R"("sensitiveContentCfg":{"inputWords":[],"filterTags":[]}})");
    EXPECT_EQ(query.header("Content-Type"), "application/json");
    EXPECT_EQ(query.header("Authorization").substr(0, 7), "Bearer ");
    EXPECT_EQ(names(query), "Accept Authorization Content-Length Content-Type Host ");
}

TEST_P(GatewayTest, OneThreadKeepsOneConnection) {
    StartLoggedIn(GetParam());
    Ask();
    const auto before = server->connections();
    for (int i = 0; i < 2000; ++i)
        ASSERT_NE(Ask().find("World"), std::string::npos) << i;
    EXPECT_EQ(server->connections(), before);

    // Connections that the server closes while they are idle cost no query.
    for (int i = 0; i < 20; ++i) {
        server->closeIdleConnections();
        ASSERT_NE(Ask().find("World"), std::string::npos) << i;
    }
}

TEST_P(GatewayTest, SixteenThreadsRenewOnce) {
    StartLoggedIn(GetParam());
    const auto before = server->connections();
    const auto sixteen = [](int queries) {
        std::atomic<int> answered{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 16; ++i) {
            threads.emplace_back([&] {
                for (int n = 0; n < queries; ++n) {
                    if (Ask().find("World") != std::string::npos) ++answered;
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        return answered.load();
    };
    EXPECT_EQ(sixteen(50), 16 * 50);
    EXPECT_LE(server->connections(), before + 16);

    for (std::uint64_t round = 1; round <= 3; ++round) {
        server->clearRequests();
        server->expireTokens();
        // Long enough for all to find the token rejected while the renewal is under way.
        server->addFault({std::string(gateway::kTokenPath), FaultKind::Delay, 200, "", "", 1});
        EXPECT_EQ(sixteen(2), 16 * 2);
        EXPECT_EQ(RequestsOf(gateway::kTokenPath), 1U) << "round " << round;
    }
}

TEST_P(GatewayTest, MonitorStopsWithinASecond) {
    using Clock = std::chrono::steady_clock;
    const auto timeOfUnit = [] {
        const auto begin = Clock::now();
        EXPECT_TRUE(Veltra::Veltra_Unit());
        return Clock::now() - begin;
    };
    StartLoggedIn(GetParam());
    ASSERT_TRUE(LogIn());
    ASSERT_TRUE(server->waitUntil([this] { return RequestsOf(gateway::kQueryPath) == 1; }));
    EXPECT_LT(timeOfUnit(), std::chrono::seconds(1)) << "waits for its next check";

    // A query's check in its one-minute pause ends with it.
    server->expireTokens();
    server->addFault({std::string(gateway::kTokenPath), FaultKind::RefuseCode, 0, "77", "no"});
    server->clearRequests();
    std::thread query([] { EXPECT_EQ(Ask()[0], '1'); });
    ASSERT_TRUE(server->waitUntil([this] { return RequestsOf(gateway::kTokenPath) > 0; }));
    const auto begin = Clock::now();
    while (Records().find("Update token failed") == std::string::npos &&
           Clock::now() - begin < std::chrono::seconds(10)) {
        std::this_thread::yield();
    }
    const std::size_t requests = RequestsOf(gateway::kTokenPath);
    const auto unit = Clock::now();
    EXPECT_LT(timeOfUnit(), std::chrono::seconds(1));
    query.join();
    EXPECT_LT(Clock::now() - unit, std::chrono::seconds(5)) << "not the whole minute";
    EXPECT_EQ(RequestsOf(gateway::kTokenPath), requests) << "no renewal after a cut pause";
}

TEST_P(GatewayTest, TokenNeverBreaksOutOfItsHeader) {
    Start(Serve(GetParam()));
    ASSERT_TRUE(Veltra::Veltra_SetDomain(server->baseUrl()));
    server->recordWire(!GetParam());
    server->setNextToken("tok\r\nX-Injected: 1");
    ASSERT_TRUE(LogIn());
    Veltra::Veltra_Unit();
    server->clearRequests();
    EXPECT_EQ(Ask(), kNotSent);
    EXPECT_EQ(server->requests().size(), 0U);
    EXPECT_EQ(server->wireBytes().find("Injected"), std::string::npos);
    const std::string log = Records();
    EXPECT_NE(log.find("4 Oak "), std::string::npos);
    EXPECT_EQ(log.find("Injected"), std::string::npos) << log;
}

TEST_F(GatewayTest, PlainHttpStaysOnThisMachine) {
    EXPECT_FALSE(Veltra::Veltra_IsDomainValid("http://192.0.2.1"));
    const std::string log = Records();
    EXPECT_NE(log.find("plain http"), std::string::npos) << log;
    EXPECT_NE(log.find("192.0.2.1"), std::string::npos) << log;
}

TEST_P(GatewayTest, PicturesReachTheStorageAlone) {
    StartLoggedIn(GetParam());
    const std::string big(10U << 20U, 'A');  // base64 of zero bytes
    const auto submit = [&] {
        auto comment = std::make_shared<Veltra::LLMComment>("t-1");
        comment->SetPictures({big, "AQID", "BAUG", "BwgJ"});
        std::string id;
        return Veltra::Veltra_SubmitComments(comment, id) ? id : "failed";
    };
    const std::string id = submit();
    ASSERT_NE(id, "failed") << Records();
    std::size_t puts = 0;
    for (const auto& request : server->requests()) {
        if (request.method != "PUT") continue;
        ++puts;
        for (const char* name : {"Authorization", "Content-Type", "Expect"}) {
            EXPECT_EQ(request.header(name), "") << name;
        }
    }
    EXPECT_EQ(puts, 4U);
    EXPECT_EQ(server->pictures().size(), 4U);
    EXPECT_TRUE(Veltra::Veltra_CancleComments(id));
    EXPECT_FALSE(Veltra::Veltra_CancleComments(id));

    // What the gateway hands out is refused like any failed push: late, forged, or not for us.
    const auto good = server->makeUploadSlot();
    const auto late = server->makeUploadSlot(std::chrono::seconds(-1));
    server->setAnswer(std::string(gateway::kUploadPath),
                      gateway::uploadAnswer({late,
                                             {good.imageKey, good.url + "0"},
                                             {"k", "http://192.0.2.1/storage/k"},
                                             {"k", "file:///etc/hostname"}}));
    Records();
    EXPECT_EQ(submit(), "failed");
    const std::string log = Records();
    EXPECT_NE(log.find("plain http"), std::string::npos) << log;
    EXPECT_NE(log.find("Upload pic to S3 failed!"), std::string::npos) << log;
    EXPECT_EQ(server->pictures().size(), 4U);
}

TEST_P(GatewayTest, NothingOnStandardOutput) {
    const e2e::TemporaryFile captured("");
    fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    ASSERT_NE(freopen(captured.Path().c_str(), "w", stdout), nullptr);
    StartLoggedIn(GetParam());
    Ask();
    server->addFault({"", FaultKind::Status, 500, "", ""});
    Ask();
    fflush(stdout);
    ASSERT_GE(dup2(before, STDOUT_FILENO), 0);
    close(before);
    std::ifstream file(captured.Path());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "");
}

}  // namespace

// The local gateway itself: what no test of the library would notice.

#include "support/gateway_client.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace TestSupport;
using gateway::FaultKind;
using gateway::Options;

const std::string kToken(gateway::kTokenPath);
const std::string kQuery(gateway::kQueryPath);
const std::string kFeedback(gateway::kFeedbackPath);
const std::string kUpload(gateway::kUploadPath);
const std::string kCancel(gateway::kCancelPath);

Options Tls(bool tls) {
    Options options;
    options.tls = tls;
    return options;
}

TEST(Gateway, RendersWhatItCanReadAndRefusesTheRest) {
    Options with;
    with.templates.push_back({"odd", "{{a}}{{b}}{{{{a}}}}{{ a }}{{a"});
    RunningGateway gateway(with);
    const auto token = gateway.Token();
    const struct {
        std::string path, body, token, part;
    } cases[] = {
        {kQuery, QueryBody("greeting", R"("place":"\"\\\n\u00e9")"), token,
         R"("errorCode":"0","message":"","data":{"resultStr":"Hello {{name}}, welcome to \"\\\n)"
         "\u00e9.\"}"},
        {kQuery, QueryBody("odd", R"("a":"{{b}}","b":"{{a}}")"), token,
         R"("{{b}}{{a}}{{{{b}}}}{{ a }}{{a")"},
        {kQuery, QueryBody("greeting", ""), token + "x", "LAP500004"},
        {kQuery, QueryBody("greeting", "\"a\":\"\xff\""), token, "400001"},
        {kQuery, std::string(100000, '['), token, "400001"},
        {kUpload, R"({"uploadImageList":[{"generateNum":1,"imageType":"j/g"}]})", token, "400001"},
    };
    for (const auto& c : cases) {
        const auto reply = gateway.Post(c.path, c.body, c.token);
        EXPECT_EQ(reply.status, 200) << c.body.substr(0, 200);
        EXPECT_TRUE(Contains(reply.body, c.part)) << c.body.substr(0, 200) << ' ' << reply.body;
    }
    EXPECT_NE(gateway.Post("/" + std::string(20000, 'a'), "x").status, 200);
    EXPECT_NE(gateway.Post(kToken, accessKeys, std::string(20000, 't')).status, 200);
    EXPECT_NE(Send(gateway.baseUrl() + kToken, "", accessKeys, "", "B\x01G").status, 200);
}

TEST(Gateway, StorageTakesOnlyWhatItSignedAndInTime) {
    Options with;
    with.maxPictureBytes = 2000;
    RunningGateway gateway(with);
    const auto [key, url] = gateway.makeUploadSlot();
    const auto other = gateway.makeUploadSlot();
    const auto put = [&](const std::string& to, const std::string& bytes) {
        return Send(to, "", bytes, "", "PUT").status;
    };
    const auto changed = [&, whole = url](const std::string& part, const std::string& by) {
        return std::string(whole).replace(whole.find(part), part.size(), by);
    };
    const auto signature = url.substr(url.find("&signature="));
    const std::pair<const char*, std::string> refused[] = {
        {"a late one", gateway.makeUploadSlot(0s).url},
        {"its last digit missing", url.substr(0, url.size() - 1)},
        {"no signature", changed(signature, "")},
        {"another key", changed(key, other.imageKey)},
        {"another spelling of the path", changed(".jpg", "%2ejpg")},
        {"a later expiry", changed("?expires=", "?expires=9")},
        {"a second expiry", changed("&signature", "&expires=99999999999&signature")},
    };
    for (const auto& [what, bad] : refused)
        EXPECT_EQ(put(bad, "bytes"), 403) << what << ": " << bad;
    EXPECT_TRUE(gateway.pictures().empty());
    EXPECT_EQ(put(url, std::string(std::size_t{64} << 20 | 1, 'x')), 413);
    EXPECT_EQ(put(url, "replaced"), 200);
    EXPECT_EQ(put(url, "abc"), 200);
    EXPECT_EQ(gateway.picture(key), "abc");
    EXPECT_EQ(put(other.url, std::string(1999, '\0')), 200);
    EXPECT_EQ(gateway.picture(key), std::nullopt) << "the oldest goes";
}

TEST(Gateway, AFaultMeetsTheKindOfRequestThatItNames) {
    RunningGateway gateway;
    const struct {
        const char *on, *method;
        std::string path, body;
    } requests[] = {
        {"token", "POST", kToken, "x"},       {"query", "POST", kQuery, "x"},
        {"probe", "POST", kQuery + "?a", ""}, {"slots", "POST", kUpload, "x"},
        {"feedback", "POST", kFeedback, "x"}, {"withdrawal", "POST", kCancel, "x"},
        {"push", "PUT", "/storage/k", "x"},
    };
    std::string reason;
    for (const auto& named : requests) {
        const auto text = std::string("on=") + named.on + ",kind=status,number=418,text=a,b=c";
        const auto id = gateway.addFault(gateway::parseFault(text, reason).value());
        for (const auto& sent : requests)
            EXPECT_EQ(
                Send(gateway.baseUrl() + sent.path, "", sent.body, "", sent.method).body == "a,b=c",
                sent.on == named.on)
                << named.on << " meets " << sent.on;
        gateway.removeFault(id);
    }
    EXPECT_FALSE(gateway::parseFault("on=nothing,kind=close", reason));
}

TEST(Gateway, StopEndsEveryExchangeAndLeavesNothingBehind) {
    using Folder = std::filesystem::directory_iterator;
    const auto sockets = std::distance(Folder("/proc/self/fd"), Folder());
    for (const auto kind : {FaultKind::Stall, FaultKind::StallInBody, FaultKind::Delay}) {
        const bool delay = kind == FaultKind::Delay;
        RunningGateway gateway(Tls(delay));
        gateway.addFault({"", kind, delay ? 3600000 : 4});
        auto reply = std::async(std::launch::async, [&] { return gateway.Post(kToken, "x"); });
        EXPECT_TRUE(gateway.waitUntil(
            [&] { return gateway.requests().size() == 1 && (delay || gateway.stalled() == 1); }));
        const auto url = gateway.baseUrl() + kToken;
        gateway.stop();
        const auto code = reply.get().code;
        EXPECT_TRUE(code != CURLE_OK && code != CURLE_OPERATION_TIMEDOUT) << code;
        EXPECT_EQ(Send(url, "", "x").code, CURLE_COULDNT_CONNECT);
    }
    EXPECT_EQ(std::distance(Folder("/proc/self/fd"), Folder()), sockets);
}

TEST(Gateway, OnlyThisMachineAndItsOwnPageReachTheControlEndpoints) {
    using Lists = std::vector<std::vector<std::string>>;
    RunningGateway gateway;
    const auto url = gateway.baseUrl();
    const auto port = std::to_string(gateway.port());
    const auto expect = [&](const std::vector<std::string>& headers, bool get, bool post) {
        std::string shown;
        for (const auto& header : headers)
            shown += header + "; ";
        const auto status = [&](const char* method, const char* path) {
            return Send(url + path, "", "", "", method, headers).status;
        };
        for (const auto* path : {"/", "/control/page.js", "/control/requests"})
            EXPECT_EQ(status("GET", path), get ? 200 : 403) << path << ' ' << shown;
        EXPECT_EQ(status("POST", "/control/expire-tokens"), post ? 200 : 403) << shown;
        EXPECT_EQ(status("DELETE", "/control/faults/7"), post ? 404 : 403) << shown;
    };
    for (const auto& headers : Lists{{},
                                     {"Origin: " + url, "Sec-Fetch-Site: same-origin"},
                                     {"Sec-Fetch-Site: none"},
                                     {"Host: LocalHost:1"},
                                     {"Host: [::1]"}})
        expect(headers, true, true);
    for (const auto& headers : Lists{{"Host:"},
                                     {"Host: elsewhere.example:" + port},
                                     {"Host: 127.0.0.1.example"},
                                     {"Host: [::1"},
                                     {"Host: localhost\r\nHost: elsewhere.example"},
                                     {"Origin: null"},
                                     {"Origin: http://127.0.0.1:1"},
                                     {"Origin: http://127.0.0.1:" + port + ".example"},
                                     {"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: no-cors"},
                                     {"Sec-Fetch-Site: same-site"}})
        expect(headers, false, false);
    expect({"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: navigate"}, true, false);
    EXPECT_TRUE(gateway.requests().empty()) << "control requests are not on record";
}

TEST(Gateway, RecordsHowEachRequestEndedInBoundedRoom) {
    Options with;
    with.recordAnswers = true;
    with.maxRecordedRequests = 3;
    with.maxRecordedBytes = 200000;
    RunningGateway gateway(with);
    const auto id = gateway.addFault({kFeedback, FaultKind::Close});
    gateway.addFault({kToken, FaultKind::CutBody, 5});
    gateway.addFault({kQuery, FaultKind::Delay, 3600000});
    gateway.Post(kFeedback, "x");
    gateway.Post(kToken, accessKeys);
    auto late = std::async(std::launch::async, [&] { return gateway.Post(kQuery, "x"); });
    ASSERT_TRUE(gateway.waitUntil([&] {
        const auto all = gateway.exchanges().changed;
        return all.size() == 3 && all[2].faults.size() == 1;
    }));
    const auto seen = gateway.exchanges();
    EXPECT_TRUE(seen.changed[0].took && !seen.changed[0].answer) << "a fault came in its place";
    EXPECT_TRUE(Contains(seen.changed[1].answer.value().body, "accessToken"));
    EXPECT_EQ(seen.changed[1].answerSent, 5U);
    EXPECT_FALSE(seen.changed[2].took) << "under way";

    EXPECT_TRUE(gateway.removeFault(id));
    EXPECT_FALSE(gateway.removeFault(id));
    gateway.setAnswer("/large", {200, std::string(90000, 'a')});
    gateway.Post("/large", "x");
    const auto later = gateway.exchanges(seen.revision, 1, 10);
    ASSERT_EQ(later.changed.size(), 1U);
    EXPECT_EQ(later.oldest, 2U) << "one over the number";
    EXPECT_EQ(later.changed[0].answer.value().body, std::string(10, 'a'));
    EXPECT_EQ(later.changed[0].answerSize, 90000U);
    gateway.Post("/large", "x");
    gateway.Post("/large", "x");
    EXPECT_EQ(gateway.exchanges().changed.size(), 2U) << "more bytes than there is room for";
    gateway.stop();
}

// The shell says its process id before it becomes the program.
int RunProgram(const std::string& arguments) {
    const auto command = "echo $$ >pid && exec '" VELTRA_GATEWAY_PROGRAM "' >log 2>&1 " + arguments;
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c)
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Read(const char* file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

TEST(Program, ServesUntilToldToEndAndSaysByItsExitStatusWhyNot) {
    const auto folder = testing::TempDir() + "gateway_test." + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::filesystem::current_path(folder);
    std::ofstream("keys") << "# pairs\napp:secret\n";
    for (const bool bySignal : {true, false}) {
        auto status = std::async(std::launch::async, [] {
            return RunProgram(
                "--tls --ca-out ca.pem --ready-file ready --keys-file keys "
                "--fault kind=status,number=418,times=1");
        });
        while (!std::filesystem::exists("ready") &&
               status.wait_for(0s) != std::future_status::ready)
            std::this_thread::yield();
        ASSERT_TRUE(std::filesystem::exists("ready")) << Read("log");
        const auto url = Read("ready").substr(0, Read("ready").find('\n'));
        const auto ca = Read("ca.pem");
        EXPECT_EQ(Send(url + kToken, ca, accessKeys).status, 418);
        EXPECT_TRUE(Contains(Send(url + kToken, ca, accessKeys).body, R"("errorCode":"0")"));
        if (bySignal) {
            kill(std::stoi(Read("pid")), SIGTERM);
        } else {
            EXPECT_EQ(Send(url + "/control/stop", ca, "").status, 200);
        }
        EXPECT_EQ(status.get(), 0) << Read("log");
        EXPECT_FALSE(std::filesystem::exists("ready"));
    }
    const std::pair<const char*, int> cases[] = {
        {"--help", 0},
        {"--port 70000", 2},
        {"--tls=x", 2},
        {"--key nocolon", 2},
        {"--fault kind=stall,number=1x", 2},
        {"--templates missing", 2},
        {"--model-url http://127.0.0.1:1", 2},
        {"--model m --model-url http://h --model-key-file missing", 2},
        {"--ca-out x", 2},
        {"--address nowhere", 1},
        {"--ready-file missing/ready", 1},
    };
    for (const auto& [arguments, status] : cases) {
        EXPECT_EQ(RunProgram(arguments), status) << arguments << '\n' << Read("log");
        if (status == 0) continue;
        EXPECT_EQ(Read("log").rfind("veltra-gateway: ", 0), 0) << Read("log");
        EXPECT_FALSE(Contains(Read("log"), "Could not convert")) << Read("log");
    }
    std::filesystem::remove_all(folder);
}

}  // namespace

#include "gateway/gateway.h"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using gateway::FaultKind;
using gateway::Gateway;
using gateway::Options;

const std::string kToken(gateway::kTokenPath);
const std::string kQuery(gateway::kQueryPath);
const std::string kFeedback(gateway::kFeedbackPath);
const std::string kUpload(gateway::kUploadPath);
const std::string kCancel(gateway::kCancelPath);
const std::string kKeys = R"({"appKey":"app","secretKey":"secret"})";
const std::string kSlot = R"({"uploadImageList":[{"generateNum":1,"imageType":"jpg"}]})";

struct Reply {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body;
};

std::size_t append(char* data, std::size_t, std::size_t size, void* to) {
    static_cast<std::string*>(to)->append(data, size);
    return size;
}

Reply send(const std::string& url, const std::string& ca, const std::string& body,
           const std::string& token = {}, const char* method = "POST",
           const std::vector<std::string>& headers = {}) {
    Reply reply;
    const std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(), curl_easy_cleanup);
    CURL* const curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BEARER);
    curl_easy_setopt(curl, CURLOPT_XOAUTH2_BEARER, token.c_str());
    curl_blob authority{const_cast<char*>(ca.data()), ca.size(), CURL_BLOB_NOCOPY};
    if (!ca.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &authority);
    curl_slist* list = nullptr;
    for (const auto& header : headers)
        list = curl_slist_append(list, header.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    reply.code = curl_easy_perform(curl);
    curl_slist_free_all(list);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}

Options options(bool tls = false) {
    Options made;
    made.tls = tls;
    made.keys = {{"app", "secret"}, {"app2", "secret2"}};
    return made;
}

std::string queryBody(const std::string& key, const std::string& elements,
                      const std::string& words = "") {
    return R"({"traceId":"t","promptKey":")" + key + R"(","replaceElements":{)" + elements +
           R"(},"sensitiveContentCfg":{"inputWords":[)" + words + R"(],"filterTags":[]}})";
}

std::string feedbackBody(const std::string& traceId) {
    return R"({"traceId":")" + traceId +
           R"(","satisfactionType":-1,"feedbackType":2147483647,"feedbackDescription":"d\u00e9",)"
           R"("country":"NO","clientVersion":"1.0","feedbackImageKeys":["k1","k2"]})";
}

std::string cancelBody(const std::string& id) {
    return R"({"feedbackId":")" + id + "\"}";
}

// The text member of that name, which the text is expected to have.
std::string member(const std::string& text, const std::string& name) {
    const auto at = text.find('"' + name + "\":\"");
    EXPECT_NE(at, text.npos) << name << " in " << text;
    const auto begin = at + name.size() + 4;
    return at == text.npos ? "" : text.substr(begin, text.find('"', begin) - begin);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != text.npos;
}

class Running : public Gateway {
 public:
    explicit Running(Options with = options()) : Gateway(std::move(with)) {
        EXPECT_TRUE(start()) << reason();
    }
    Reply post(const std::string& path, const std::string& body, const std::string& token = {}) {
        return send(baseUrl() + path, caPem(), body, token);
    }
    long put(const std::string& url, const std::string& bytes) {
        return send(url, caPem(), bytes, "", "PUT").status;
    }
    std::string token() { return member(post(kToken, kKeys).body, "accessToken"); }
};

TEST(Gateway, AnswersEachRoad) {
    auto with = options();
    with.templates.push_back({"odd", "{{a}}{{b}}{{{{a}}}}{{ a }}{{a"});
    Running gateway(with);
    const auto token = gateway.token();
    const auto greeting = queryBody("greeting", "");
    const struct {
        std::string path, body, token, part;
    } cases[] = {
        {kQuery, queryBody("greeting", R"("place":"\"\\\n\u00e9")"), token,
         R"("errorCode":"0","message":"","data":{"resultStr":"Hello {{name}}, welcome to \"\\\n)"
         "\u00e9.\"}"},
        {kQuery, queryBody("odd", R"("a":"{{b}}","b":"{{a}}")"), token,
         R"("{{b}}{{a}}{{{{b}}}}{{ a }}{{a")"},
        {kToken, R"({"appKey":"app","secretKey":"secret2"})", "", "403001"},
        {kToken, R"({"appKey":"a"b","secretKey":"secret"})", "", "400001"},
        {kQuery, "", "", "the request has no body"},
        {kQuery, greeting, token + "x", "LAP500004"},
        {kQuery, queryBody("greeting", "\"a\":\"\xff\""), token, "400001"},
        {kQuery, std::string(100000, '['), token, "400001"},
        {kQuery, queryBody("unknown", ""), token, "404001"},
        {kQuery, queryBody("greeting", "", R"("a forbidden word")"), token, "CCF083001"},
        {kFeedback, feedbackBody("t"), token + "x", "LAP500004"},
        {kFeedback, feedbackBody(""), token, R"(\"traceId\" is empty)"},
        {kUpload, R"({"uploadImageList":[{"generateNum":1,"imageType":"j/g"}]})", token, "400001"},
        {kCancel, cancelBody("x"), token + "x", "LAP500004"},
        {kCancel, cancelBody("x"), token, "404002"},
    };
    for (const auto& c : cases) {
        const auto reply = gateway.post(c.path, c.body, c.token);
        EXPECT_EQ(reply.status, 200) << c.body.substr(0, 200);
        EXPECT_TRUE(contains(reply.body, c.part)) << c.body.substr(0, 200) << ' ' << reply.body;
    }
    const auto url = gateway.baseUrl();
    EXPECT_NE(gateway.post("/" + std::string(20000, 'a'), "x").status, 200);
    EXPECT_NE(gateway.post(kToken, kKeys, std::string(20000, 't')).status, 200);
    EXPECT_NE(send(url + kToken, "", kKeys, "", "B\x01G").status, 200);
    EXPECT_NE(send("gopher" + url.substr(4) + "/_\x16\x03%00%0d%0a%0d%0a", "", "").status, 200);
    gateway.expireTokens();
    const auto later = gateway.token();
    EXPECT_TRUE(contains(gateway.post(kQuery, greeting, token).body, "LAP500004"));
    EXPECT_TRUE(contains(gateway.post(kQuery, greeting, later).body, "Hello"));
}

TEST(Gateway, KeepsFeedbackUntilItIsWithdrawn) {
    Running gateway;
    const auto token = gateway.token();
    const auto id = member(gateway.post(kFeedback, feedbackBody("one"), token).body, "feedbackId");
    EXPECT_NE(member(gateway.post(kFeedback, feedbackBody("two"), token).body, "feedbackId"), id);
    EXPECT_TRUE(contains(gateway.post(kCancel, cancelBody(id), token).body, R"("errorCode":"0")"));
    EXPECT_TRUE(contains(gateway.post(kCancel, cancelBody(id), token).body, "409001"));
    const auto kept = gateway.feedback();
    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0].traceId + kept[0].description, "oned\u00e9");
    EXPECT_EQ(kept[0].feedbackType, 2147483647);
    EXPECT_EQ(kept[0].imageKeys, (std::vector<std::string>{"k1", "k2"}));
    EXPECT_TRUE(kept[0].withdrawn && !kept[1].withdrawn);
}

TEST(Gateway, StorageTakesOnlyWhatItSignedAndInTime) {
    auto with = options();
    with.maxPictureBytes = 2000;
    Running gateway(with);
    const auto answer = gateway.post(kUpload, kSlot, gateway.token()).body;
    const auto key = member(answer, "imageKey");
    const auto url = member(answer, "url");
    const auto other = gateway.makeUploadSlot();
    const auto changed = [&](const std::string& part, const std::string& by) {
        return std::string(url).replace(url.find(part), part.size(), by);
    };
    const auto signature = url.substr(url.find("&signature="));
    const std::pair<const char*, std::string> refused[] = {
        {"a late one", gateway.makeUploadSlot(0s).url},
        {"another's signature", changed(signature, other.url.substr(other.url.find("&sig")))},
        {"its last digit missing", url.substr(0, url.size() - 1)},
        {"no signature", changed(signature, "")},
        {"another key", changed(key, other.imageKey)},
        {"another spelling of the path", changed(".jpg", "%2ejpg")},
        {"a later expiry", changed("?expires=", "?expires=9")},
        {"a second expiry", changed("&signature", "&expires=99999999999&signature")},
    };
    for (const auto& [what, bad] : refused)
        EXPECT_EQ(gateway.put(bad, "bytes"), 403) << what << ": " << bad;
    EXPECT_TRUE(gateway.pictures().empty());

    EXPECT_EQ(gateway.put(url, std::string(std::size_t{64} << 20 | 1, 'x')), 413);
    EXPECT_EQ(gateway.put(url, "replaced"), 200);
    EXPECT_EQ(gateway.put(url, "abc"), 200);
    EXPECT_EQ(gateway.picture(key), "abc");
    EXPECT_EQ(gateway.pictures().at(0).sha256,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(gateway.put(other.url, std::string(1999, '\0')), 200);
    EXPECT_EQ(gateway.picture(key), std::nullopt) << "the oldest goes";
}

class GatewayBothWays : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(, GatewayBothWays, testing::Bool(),
                         [](const auto& variant) { return variant.param ? "Https" : "Http"; });

TEST_P(GatewayBothWays, FaultsMeetOneRequestAndThenPass) {
    Running gateway(options(GetParam()));
    const auto token = gateway.token();
    const auto body = queryBody("greeting", "");
    const auto whole = gateway.post(kQuery, body, token).body;
    const struct {
        const char* fault;
        CURLcode code;
        std::string body;
    } cases[] = {
        {"kind=status,number=503,text=no, sorry", CURLE_OK, "no, sorry"},
        {"kind=delay,number=1", CURLE_OK, whole},
        {"kind=bad-json,text={", CURLE_OK, "{"},
        {"kind=empty-body", CURLE_OK, ""},
        {"kind=refuse,code=77,text=x", CURLE_OK, R"({"errorCode":"77","message":"x","data":{}})"},
        {"kind=close", CURLE_GOT_NOTHING, ""},
        {"kind=reset", CURLE_RECV_ERROR, ""},
        {"kind=reset-in-headers", CURLE_RECV_ERROR, ""},
        {"kind=reset-in-body,number=5", CURLE_RECV_ERROR, whole.substr(0, 5)},
        {"kind=cut-body,number=5", CURLE_PARTIAL_FILE, whole.substr(0, 5)},
        {"kind=cut-body,number=99999", CURLE_PARTIAL_FILE, whole.substr(0, whole.size() - 1)},
        {"kind=garbage", CURLE_UNSUPPORTED_PROTOCOL, ""},
    };
    for (const auto& c : cases) {
        std::string reason;
        const auto fault = gateway::parseFault("path=" + kQuery + ",times=1," + c.fault, reason);
        ASSERT_TRUE(fault) << reason;
        gateway.addFault(*fault);
        EXPECT_EQ(gateway.post(kToken, kKeys).code, CURLE_OK) << "another path: " << c.fault;
        const auto reply = gateway.post(kQuery, body, token);
        // The system may report the end of a connection as a failure to receive.
        EXPECT_TRUE(reply.code == c.code || (c.code != CURLE_OK && reply.code == CURLE_RECV_ERROR))
            << c.fault << ' ' << reply.code;
        EXPECT_EQ(reply.body, c.body) << c.fault;
        EXPECT_EQ(gateway.post(kQuery, body, token).body, whole) << "after " << c.fault;
    }
}

TEST_P(GatewayBothWays, StopEndsEveryExchangeAndLeavesNothingBehind) {
    using Folder = std::filesystem::directory_iterator;
    const auto sockets = std::distance(Folder("/proc/self/fd"), Folder());
    for (const auto kind : {FaultKind::Stall, FaultKind::StallInBody, FaultKind::Delay}) {
        const bool delay = kind == FaultKind::Delay;
        Running gateway(options(GetParam()));
        gateway.addFault({"", kind, delay ? 3600000 : 4});
        auto reply = std::async(std::launch::async, [&] { return gateway.post(kToken, kKeys); });
        EXPECT_TRUE(gateway.waitUntil(
            [&] { return gateway.requests().size() == 1 && (delay || gateway.stalled() == 1); }));
        const auto url = gateway.baseUrl() + kToken;
        gateway.stop();
        const auto code = reply.get().code;
        EXPECT_TRUE(code != CURLE_OK && code != CURLE_OPERATION_TIMEDOUT) << code;
        EXPECT_EQ(send(url, "", kKeys).code, CURLE_COULDNT_CONNECT);
    }
    EXPECT_EQ(std::distance(Folder("/proc/self/fd"), Folder()), sockets);
}

TEST_P(GatewayBothWays, OnlyThisMachineAndItsOwnPageReachTheControlEndpoints) {
    Running gateway(options(GetParam()));
    const auto url = gateway.baseUrl();
    const auto host = url.substr(url.find("//") + 2);
    const struct {
        std::vector<std::string> headers;
        bool get, post;
    } cases[] = {
        {{}, true, true},
        {{"Origin: " + url, "Sec-Fetch-Site: same-origin"}, true, true},
        {{"Sec-Fetch-Site: none"}, true, true},
        {{"Host: LocalHost:1"}, true, true},
        {{"Host: [::1]"}, true, true},
        {{"Host:"}, false, false},
        {{"Host: elsewhere.example:" + std::to_string(gateway.port())}, false, false},
        {{"Host: 127.0.0.1.example"}, false, false},
        {{"Host: localhost.example"}, false, false},
        {{"Host: [::1"}, false, false},
        {{"Host: localhost\r\nHost: elsewhere.example"}, false, false},
        {{"Origin: null"}, false, false},
        {{"Origin: http://elsewhere.example"}, false, false},
        {{"Origin: http://127.0.0.1:1"}, false, false},
        {{"Origin: http://" + host + ".example"}, false, false},
        {{"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: no-cors"}, false, false},
        {{"Sec-Fetch-Site: same-site"}, false, false},
        {{"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: navigate"}, true, false},
    };
    for (const auto& c : cases) {
        std::string shown;
        for (const auto& header : c.headers)
            shown += header + "; ";
        const auto status = [&](const char* method, const char* path) {
            return send(url + path, gateway.caPem(), "", "", method, c.headers).status;
        };
        for (const auto* path : {"/", "/control/page.js", "/control/requests"})
            EXPECT_EQ(status("GET", path), c.get ? 200 : 403) << path << ' ' << shown;
        EXPECT_EQ(status("POST", "/control/expire-tokens"), c.post ? 200 : 403) << shown;
        EXPECT_EQ(status("DELETE", "/control/faults/7"), c.post ? 404 : 403) << shown;
    }
    EXPECT_TRUE(gateway.requests().empty()) << "control requests are not on record";
    const auto page = send(url + "/", gateway.caPem(), "", "", "GET").body;
    for (const auto& road : {kToken, kQuery, kFeedback + "$", kUpload, kCancel})
        EXPECT_TRUE(contains(page, "value=\"" + road + "\"")) << road;
}

TEST(Gateway, RecordsHowEachRequestEndedInBoundedRoom) {
    auto with = options();
    with.recordAnswers = true;
    with.maxRecordedRequests = 3;
    with.maxRecordedBytes = 200000;
    Running gateway(with);
    const auto id = gateway.addFault({kQuery, FaultKind::Stall});
    EXPECT_NE(gateway.addFault({kToken, FaultKind::CutBody, 5}), id);
    auto stalled = std::async(std::launch::async, [&] { return gateway.post(kQuery, "x"); });
    ASSERT_TRUE(gateway.waitUntil([&] { return gateway.stalled() == 1; }));
    gateway.post(kToken, kKeys);
    gateway.addFault({kFeedback, FaultKind::Delay, 3600000});
    auto late = std::async(std::launch::async, [&] { return gateway.post(kFeedback, "x"); });
    ASSERT_TRUE(gateway.waitUntil([&] { return gateway.exchanges().changed.size() == 3; }));
    ASSERT_TRUE(
        gateway.waitUntil([&] { return gateway.exchanges().changed.at(2).faults.size() == 1; }));
    const auto seen = gateway.exchanges();
    EXPECT_TRUE(seen.changed[0].took && !seen.changed[0].answer) << "a fault came in its place";
    ASSERT_TRUE(seen.changed[1].answer);
    EXPECT_TRUE(contains(seen.changed[1].answer->body, "accessToken"));
    EXPECT_EQ(seen.changed[1].answerSent, 5U);
    EXPECT_FALSE(seen.changed[2].took) << "under way";
    EXPECT_TRUE(gateway.exchanges(seen.revision).changed.empty());

    EXPECT_TRUE(gateway.removeFault(id));
    EXPECT_FALSE(gateway.removeFault(id));
    gateway.setAnswer("/large", {200, std::string(90000, 'a')});
    gateway.post("/large", "x");
    const auto later = gateway.exchanges(seen.revision, 1, 10);
    ASSERT_EQ(later.changed.size(), 1U);
    EXPECT_EQ(later.oldest, 2U) << "one over the number";
    EXPECT_EQ(later.changed[0].answer.value().body, std::string(10, 'a'));
    EXPECT_EQ(later.changed[0].answerSize, 90000U);
    gateway.post("/large", "x");
    gateway.post("/large", "x");
    EXPECT_EQ(gateway.exchanges().changed.size(), 2U) << "more bytes than there is room for";
    gateway.stop();
}

// The shell says its process id before it becomes the program.
int runProgram(const std::string& arguments) {
    const auto command = "echo $$ >pid && exec '" VELTRA_GATEWAY_PROGRAM "' >log 2>&1 " + arguments;
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c)
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string read(const char* file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

TEST(Program, ServesUntilToldToEndAndSaysByItsExitStatusWhyNot) {
    const auto folder = testing::TempDir() + "gateway_test." + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::filesystem::current_path(folder);
    std::ofstream("keys") << "# pairs\napp:secret\n";
    std::ofstream("templates") << R"({"templates":[{"key":"k","text":"t"}]})";
    for (const bool bySignal : {true, false}) {
        auto status = std::async(std::launch::async, [] {
            return runProgram(
                "--tls --ca-out ca.pem --ready-file ready --keys-file keys "
                "--templates templates --fault kind=status,number=418,times=1");
        });
        while (!std::filesystem::exists("ready") &&
               status.wait_for(0s) != std::future_status::ready)
            std::this_thread::yield();
        ASSERT_TRUE(std::filesystem::exists("ready")) << read("log");
        const auto url = read("ready").substr(0, read("ready").find('\n'));
        const auto ca = read("ca.pem");
        EXPECT_EQ(send(url + kToken, ca, kKeys).status, 418);
        EXPECT_TRUE(contains(send(url + kToken, ca, kKeys).body, R"("errorCode":"0")"));
        if (bySignal) {
            kill(std::stoi(read("pid")), SIGTERM);
        } else {
            EXPECT_EQ(send(url + "/control/stop", ca, "").status, 200);
        }
        EXPECT_EQ(status.get(), 0) << read("log");
        EXPECT_FALSE(std::filesystem::exists("ready"));
    }

    const std::pair<const char*, int> cases[] = {
        {"--help", 0},
        {"--port 70000", 2},
        {"--key nocolon", 2},
        {"--fault kind=stall,number=1x", 2},
        {"--templates missing", 2},
        {"--ca-out x", 2},
        {"--address nowhere", 1},
        {"--ready-file missing/ready", 1},
    };
    for (const auto& [arguments, status] : cases)
        EXPECT_EQ(runProgram(arguments), status) << arguments;
    std::filesystem::remove_all(folder);
}

}  // namespace

// Secret keys: what a process that logged in holds in memory afterwards, and how the body that
// carries them is sent.

#include "AIManager.h"
#include "e2e/e2e_support.h"
#include "support/raw_server.h"

#include <qlog/qlog_write.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

const std::string kSecretKey = "a-secret-key-that-is-longer-than-one-piece";

struct Found {
    std::size_t keys = 0;
    std::size_t bodies = 0;
};

/// Looks for the key, and for the key within a body, in what the process may write to, freed memory
/// included; not in a sanitizer's own tables. Never holds a body itself.
Found SearchThisProcess() {
    constexpr std::uintptr_t tooLarge = std::uintptr_t{1} << 28;
    const auto key = std::string_view(kSecretKey).substr(0, 24);
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::ifstream maps("/proc/self/maps");
    Found found;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        std::array<char, 5> rights{};
        // NOLINTNEXTLINE(cert-err34-c): the kernel writes what it reads here
        if (std::sscanf(line.c_str(), "%zx-%zx %4s", &begin, &end, rights.data()) != 3 ||
            rights[1] != 'w' || end - begin > tooLarge)
            continue;
        std::string bytes(end - begin, '\0');
        const ssize_t got = pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(begin));
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        for (auto at = bytes.find(key); at != std::string::npos; at = bytes.find(key, at + 1)) {
            ++found.keys;
            if (std::string_view(bytes).substr(0, at).ends_with(R"("secretKey":")")) ++found.bodies;
        }
    }
    close(memory);
    return found;
}

/// A gateway in a process of its own, since it has the bodies in its memory. It lives until its
/// standard input ends.
class OtherProcess {
 public:
    explicit OtherProcess(bool tls) {
        std::array<int, 2> toChild{};
        std::array<int, 2> fromChild{};
        if (pipe(toChild.data()) != 0 || pipe(fromChild.data()) != 0) return;
        child_ = fork();
        if (child_ == 0) {
            close(toChild[1]);
            Serve(tls, toChild[0], fromChild[1]);
        }
        close(toChild[0]);
        close(fromChild[1]);
        input_ = toChild[1];
        std::array<char, 256> text{};
        const ssize_t got = read(fromChild[0], text.data(), text.size());
        const std::string said(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        url = said.substr(0, said.find(' '));
        options.caFile = said.substr(std::min(said.size(), url.size() + 1));
        close(fromChild[0]);
    }
    ~OtherProcess() {
        close(input_);
        waitpid(child_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    std::string url;
    Oak::Net::HttpClientOptions options;

 private:
    [[noreturn]] static void Serve(bool tls, int input, int output) {
        {
            gateway::Options options;
            options.tls = tls;
            options.keys = {{"good", kSecretKey}};
            gateway::Gateway server(options);
            server.start();
            const e2e::TemporaryFile ca(server.caPem());
            const std::string said = server.baseUrl() + ' ' + (tls ? ca.Path() : "");
            if (write(output, said.data(), said.size()) < 0) _exit(1);
            char end = 0;
            if (read(input, &end, 1) != 0) _exit(2);
        }
        _exit(0);
    }

    pid_t child_ = -1;
    int input_ = -1;
};

class SecretsTest : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Schemes, SecretsTest, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

TEST_P(SecretsTest, NoBodyOutlivesItsCall) {
    const OtherProcess gateway(GetParam());
    Oak::Net::SetHttpClientOptions(gateway.options);
    const struct {
        std::string domain;
        const char* appKey;
        bool result;
    } logins[] = {{"nonsense", "good", false},
                  {"http://127.0.0.1:1", "good", false},
                  {gateway.url + "/refused", "good", false},
                  {gateway.url, "bad", false},
                  {gateway.url, "good", true}};
    for (const auto& each : logins) {
        std::string token;
        std::string domain;
        std::int64_t expiry = 0;
        EXPECT_EQ(Veltra::TokenMessage::GetToekn(each.domain, each.appKey, kSecretKey, token,
                                                 expiry, domain),
                  each.result)
            << each.domain << ' ' << each.appKey;
    }
    const Found found = SearchThisProcess();
    EXPECT_NE(found.keys, 0U) << "the search finds what is there";
    EXPECT_EQ(found.bodies, 0U);
}

TEST(SecretBody, IsSentWholeAndAgainWhenAKeptConnectionDies) {
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    TestSupport::RawServer server([&](TestSupport::RawServer::Peer& peer) {
        if (peer.ReadRequest().empty()) return;
        peer.Write(answer);
        peer.ReadRequest();  // the second one gets no answer
    });
    for (const std::size_t length : {0U, 1U, 2U, 16U, 17U, 18U, 1000U}) {
        const std::string body(length, 'x');
        Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(server.Url()));
        request.SetSecretData(std::string(body));
        Oak::Net::CHttpClientResponse response;
        ASSERT_TRUE(Oak::Net::HttpClient::Send(request, &response, nullptr)) << length;
        const std::string sent = server.Requests().back();
        EXPECT_EQ(sent.substr(sent.find("\r\n\r\n") + 4), body) << length;
    }
    EXPECT_EQ(server.Connections(), 7U);
    EXPECT_EQ(server.Requests().size(), 13U);  // the first on each connection, six repeated
}

TEST(RecordGuardDeathTest, EndsAProgramThatLogsASecret) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child logs nothing
    for (const char* text : {"Authorization: x", "header Bearer t", "key a-secret-key", "bearer-1",
                             "[Veltra::TokenMessage::GetToekn]failed,rsp is:Bearer t"}) {
        EXPECT_DEATH(qlog_write(2, "Veltra", "%s", text), "a record shows a secret") << text;
    }
    qlog_write(2, "Veltra", "%s", "[Veltra::TokenMessage::GetToekn]failed,rsp is:bearer-1");
}

}  // namespace

// Secret keys: what a process that logged in holds in memory afterwards, and what its records show.

#include "AIManager.h"
#include "e2e/e2e_support.h"
#include "support/child.h"

#include <Oak/Base/Wipe.h>
#include <Oak/Net/HttpClient.h>
#include <qlog/qlog_write.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#ifdef SECRETS_WIPE_FREED
extern "C" void __libc_free(void*);  // NOLINT: the C library's name

static std::atomic<bool> wipesFreed{false};

/// While it lives, a search finds only what is kept.
struct WhatIsFreedIsWiped {
    WhatIsFreedIsWiped() { wipesFreed = true; }
    ~WhatIsFreedIsWiped() { wipesFreed = false; }
};

/// In place of the C library's.
extern "C" void free(void* memory) noexcept {
    if (memory != nullptr && wipesFreed) explicit_bzero(memory, malloc_usable_size(memory));
    __libc_free(memory);
}
#endif

namespace {

const std::string kSecretKey = "a-secret-key-JqVx2wTzK5mRbLdN9hYcF7pGsWaE";

/// Hands out what the process may write to, freed memory included; not a sanitizer's own tables.
void SearchThisProcess(const std::function<void(std::string& bytes)>& search) {
    constexpr std::uintptr_t tooLarge = std::uintptr_t{1} << 28;
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::ifstream maps("/proc/self/maps");
    std::string bytes;
    bytes.reserve(tooLarge);  // too large itself
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        std::array<char, 5> rights{};
        // NOLINTNEXTLINE(cert-err34-c): the kernel writes what it reads here
        if (std::sscanf(line.c_str(), "%zx-%zx %4s", &begin, &end, rights.data()) != 3 ||
            rights[1] != 'w' || end - begin > tooLarge)
            continue;
        bytes.resize(end - begin);
        const ssize_t got = pread(memory, bytes.data(), bytes.size(), static_cast<off_t>(begin));
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        search(bytes);
    }
    close(memory);
}

struct Found {
    std::size_t keys = 0;
    std::size_t bodies = 0;
    std::string fragments;
};

/// The key, the key within a body, and what is less than the key. Never holds a body itself.
Found FindKeys() {
    Found found;
    SearchThisProcess([&found](std::string& bytes) {
        for (auto at = bytes.find(kSecretKey); at != bytes.npos; at = bytes.find(kSecretKey, at)) {
            ++found.keys;
            if (std::string_view(bytes).substr(0, at).ends_with(R"("secretKey":")")) ++found.bodies;
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), kSecretKey.size(), ' ');
        }
        constexpr std::size_t most = 6;  // bytes that may come together by chance
        for (std::size_t i = std::strlen("a-secret-key-"); i + most <= kSecretKey.size(); ++i) {
            if (bytes.find(kSecretKey.data() + i, 0, most) != bytes.npos)
                found.fragments += kSecretKey.substr(i, 1);
        }
    });
    return found;
}

/// The gateway as a program: it has the bodies in its memory.
class OtherGateway {
 public:
    explicit OtherGateway(bool tls) {
        // Unbuffered, and by name alone on the command line: there is no further copy of the key here.
        const int keys = open(keys_.Path().c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(write(keys, "good:", 5), 5);
        EXPECT_GT(write(keys, kSecretKey.data(), kSecretKey.size()), 0);
        close(keys);
        std::vector<std::string> command = {VELTRA_GATEWAY_PROGRAM, "--keys-file", keys_.Path()};
        if (tls) command.insert(command.end(), {"--tls", "--ca-out", ca_.Path()});
        program_ = std::make_unique<TestSupport::Child>(command);
        const std::string listening = program_->Line();
        url = listening.substr(listening.rfind(' ') + 1);
        Oak::Net::HttpClientOptions http;
        if (tls) http.caFile = ca_.Path();
        Oak::Net::SetHttpClientOptions(http);
    }

    std::string url;

 private:
    const e2e::TemporaryFile keys_{""};
    const e2e::TemporaryFile ca_{""};
    std::unique_ptr<TestSupport::Child> program_;
};

class SecretsTest : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Schemes, SecretsTest, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

TEST_P(SecretsTest, NoBodyOutlivesItsCall) {
    const OtherGateway other(GetParam());
    const struct {
        std::string domain;
        const char* appKey;
        bool result;
    } logins[] = {{"nonsense", "good", false},
                  {"http://127.0.0.1:1", "good", false},
                  {other.url + "/refused", "good", false},
                  {other.url, "bad", false},
                  {other.url, "good", true}};
    for (const auto& each : logins) {
        std::string token;
        std::string domain;
        std::int64_t expiry = 0;
        EXPECT_EQ(Veltra::TokenMessage::GetToekn(each.domain, each.appKey, kSecretKey, token,
                                                 expiry, domain),
                  each.result)
            << each.domain << ' ' << each.appKey;
    }
    const Found found = FindKeys();
    EXPECT_NE(found.keys, 0U) << "the search finds what is there";
    EXPECT_EQ(found.bodies, 0U);
    EXPECT_EQ(found.fragments, "");
}

TEST_P(SecretsTest, LogoutLeavesNoKeyAndNoToken) {
    const OtherGateway other(GetParam());
#ifdef SECRETS_WIPE_FREED  // what the libraries below have freed is theirs
    const WhatIsFreedIsWiped onlyKept;
#endif
    Veltra::Veltra_Enable();
    ASSERT_TRUE(Veltra::Veltra_SetDomain(other.url));
    for (const int pairs : {1, 5}) {
        const auto license = std::make_shared<Veltra::CLicenseInfo>();
        std::vector<Veltra::CAccessKey> keys(static_cast<std::size_t>(pairs), {"good", kSecretKey});
        license->SetLicenseKey("", keys);
        for (auto& pair : keys)
            Oak::Base::Wipe(pair.secretKey);
        ASSERT_TRUE(Veltra::Veltra_Authentication({}, license));
    }
    auto& manager = *Veltra::CAIManager::GetInstance();
    const std::string token = manager.GetToken();
    EXPECT_GT(FindKeys().keys, 1U) << "the test's own, and those that renewals need";
    EXPECT_TRUE(Veltra::Veltra_Logout());
    EXPECT_EQ(FindKeys().keys, 1U) << "the test's own alone";
#ifdef SECRETS_WIPE_FREED
    std::size_t tokens = 0;
    SearchThisProcess([&](const std::string& bytes) {
        for (auto at = bytes.find(token); at != bytes.npos; at = bytes.find(token, at + 1))
            ++tokens;
    });
    EXPECT_EQ(tokens, 1U) << "the test's own alone";
#endif
    EXPECT_EQ(manager.GetToken(), "");
    EXPECT_EQ(manager.Access().domain, Veltra::CAIManager::GetTestDomain());
}

#ifdef SECRETS_WIPE_FREED
/// What is freed is not wiped, but nothing that is kept between exchanges holds a signature.
TEST(SignatureTest, IsNotKeptWithItsConnection) {
    const OtherGateway other(false);
    const WhatIsFreedIsWiped onlyKept;
    const auto isKeptAfter = [&](const char* method, const std::string& target, char filling) {
        {
            const Oak::Net::URL whole(other.url + target + std::string(40, filling));
            const Oak::Net::CHttpClientRequest request(method, whole);
            EXPECT_TRUE(Oak::Net::HttpClient::Send(request, nullptr, nullptr));
        }
        bool found = false;
        SearchThisProcess([&](const std::string& bytes) {
            const auto at = std::search_n(bytes.begin(), bytes.end(), 40, filling);
            found = found || at != bytes.end();
        });
        return found;
    };
    EXPECT_FALSE(isKeptAfter("PUT", "/storage/k?signature=", 'S'));
    EXPECT_TRUE(isKeptAfter("POST", "/", 'P')) << "the search finds what is there";
}
#endif

TEST(RecordGuardDeathTest, EndsAProgramThatLogsASecret) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child logs nothing
    for (const char* text : {"Authorization: x", "header Bearer t", "key a-secret-key", "bearer-1",
                             "[Veltra::TokenMessage::GetToekn]failed,rsp is:Bearer t"}) {
        EXPECT_DEATH(qlog_write(2, "Veltra", "%s", text), "a record shows a secret") << text;
    }
    qlog_write(2, "Veltra", "%s", "[Veltra::TokenMessage::GetToekn]failed,rsp is:bearer-1");
}

}  // namespace

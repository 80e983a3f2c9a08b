// The real library over real sockets, against local gateways that are other processes.

#include "e2e/calls.h"
#include "e2e/given_up.h"
#include "windows/gateways.h"

#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>

#include <gtest/gtest.h>
#include <wincrypt.h>
#include <windows.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using e2e::Ask;
using e2e::LogIn;

/// The authority of the gateway in the user's own store of trusted roots, while this lives.
class ImportedAuthority {
 public:
    ImportedAuthority() {
        const std::string pem = gateways::Read("ca.pem");
        std::vector<BYTE> bytes(pem.size());
        DWORD size = static_cast<DWORD>(bytes.size());
        EXPECT_TRUE(CryptStringToBinaryA(pem.data(), static_cast<DWORD>(pem.size()),
                                         CRYPT_STRING_BASE64HEADER, bytes.data(), &size, nullptr,
                                         nullptr));
        store_ =
            CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
        EXPECT_TRUE(CertAddEncodedCertificateToStore(store_, X509_ASN_ENCODING, bytes.data(), size,
                                                     CERT_STORE_ADD_REPLACE_EXISTING, &added_));
        EXPECT_TRUE(CertControlStore(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr));  // for others
    }
    ~ImportedAuthority() {
        EXPECT_TRUE(CertDeleteCertificateFromStore(added_));
        EXPECT_TRUE(CertControlStore(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr));
        EXPECT_TRUE(CertCloseStore(store_, CERT_CLOSE_STORE_CHECK_FLAG)) << GetLastError();
    }
    ImportedAuthority(const ImportedAuthority&) = delete;
    ImportedAuthority& operator=(const ImportedAuthority&) = delete;

 private:
    HCERTSTORE store_ = nullptr;
    PCCERT_CONTEXT added_ = nullptr;
};

class GatewayTest : public testing::Test {
 protected:
    ~GatewayTest() override {
        Veltra::Veltra_Disable();
        Oak::Net::SetHttpClientOptions({});
    }

    static bool Reach(const std::string& name, const std::string& caFile = "") {
        Oak::Net::HttpClientOptions options;
        options.caFile = caFile;
        options.totalTimeoutMs = 20000;
        Oak::Net::SetHttpClientOptions(options);
        Veltra::Veltra_Enable();
        return Veltra::Veltra_SetDomain(gateways::Read(name)) && LogIn();
    }

    /// Query, feedback with a picture, withdrawal.
    static void WalkTheRoads() {
        EXPECT_NE(Ask("Ada").find("Ada"), std::string::npos) << Ask("Ada");
        std::string id;
        EXPECT_TRUE(e2e::Submit({"AQID", "BAUG"}, &id));
        EXPECT_FALSE(id.empty());
        EXPECT_TRUE(Veltra::Veltra_CancleComments(id));
    }
};

TEST_F(GatewayTest, AllRoadsOverEachScheme) {
    ASSERT_TRUE(Reach("plain"));
    WalkTheRoads();
    ASSERT_TRUE(Reach("tls", VELTRA_GATEWAYS "/ca.pem"));
    WalkTheRoads();
    EXPECT_FALSE(Reach("tls")) << "a strange authority";
}

/// A process of its own: one that has judged a server before doesn't see what is imported later.
TEST_F(GatewayTest, AllRoadsWithAnImportedAuthority) {
    const ImportedAuthority authority;
    ASSERT_TRUE(Reach("tls"));
    WalkTheRoads();
}

/// Closing a request takes its time under wine; on Windows itself a tenth of a second is promised.
constexpr std::chrono::milliseconds kSoon{250};

TEST_F(GatewayTest, CallsAreGivenUp) {
    const auto reached = [] {
        std::this_thread::sleep_for(e2e::kLimit / 2);
        return true;
    };
    for (const char* const name : {"stalling", "halting"}) {
        for (const bool byLimit : {false, true}) {
            SCOPED_TRACE(std::string(name) + (byLimit ? ", by its limit" : ", cancelled"));
            const std::string domain = gateways::Read(name);
            Veltra::Veltra_Enable();
            e2e::GiveUp(byLimit, kSoon, reached,
                        [&] { return Veltra::Veltra_IsDomainValid(domain); });
        }
    }
    ASSERT_TRUE(Reach("plain"));
    WalkTheRoads();
}

TEST_F(GatewayTest, ClosesWithinASecondWhileTheMonitorStalls) {
    ASSERT_TRUE(Reach("leading"));
    while (gateways::Stalled() == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_TRUE(Veltra::Veltra_CancelAll());
    EXPECT_TRUE(Veltra::Veltra_Disable());
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
}

TEST_F(GatewayTest, ThreadsShareTheLibrary) {
    ASSERT_TRUE(Reach("plain"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([name = "thread " + std::to_string(i)] {
            for (int round = 0; round < 25; ++round)
                EXPECT_NE(Ask(name).find(name), std::string::npos) << round;
        });
    }
    for (auto& thread : threads)
        thread.join();
}

}  // namespace

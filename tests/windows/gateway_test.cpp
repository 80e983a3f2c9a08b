// The real library over real sockets, against local gateways that are other processes.

#include "e2e/calls.h"
#include "windows/gateways.h"

#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

#include <gtest/gtest.h>
#include <wincrypt.h>
#include <windows.h>

#include <mutex>
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
        qlog_set_handler(nullptr, nullptr, 4);
    }

    static bool Reach(const std::string& name, const std::string& caFile = "",
                      std::uint32_t totalTimeoutMs = 20000) {
        Oak::Net::HttpClientOptions options;
        options.caFile = caFile;
        options.totalTimeoutMs = totalTimeoutMs;
        Oak::Net::SetHttpClientOptions(options);
        Veltra::Veltra_Enable();
        return Veltra::Veltra_SetDomain(gateways::Read(name)) && LogIn();
    }

    /// Query, feedback with a picture, withdrawal.
    static void WalkTheRoads() {
        EXPECT_NE(Ask("Ada").find("Ada"), std::string::npos) << Ask("Ada");
        const auto comment = std::make_shared<Veltra::LLMComment>("t-1");
        comment->SetComments("Gr\u00fc\u00dfe");
        comment->SetPictures({"AQID", "BAUG"});
        std::string id;
        EXPECT_TRUE(Veltra::Veltra_SubmitComments(comment, id));
        EXPECT_FALSE(id.empty());
        EXPECT_TRUE(Veltra::Veltra_CancleComments(id));
    }

    /// The reasons that the HTTP client gave for its failures.
    std::string Reasons() {
        const std::lock_guard lock(mutex_);
        return reasons_;
    }
    void KeepReasons() {
        qlog_set_handler(
            [](int, const char* tag, const char* message, void* context) {
                auto& test = *static_cast<GatewayTest*>(context);
                const std::lock_guard lock(test.mutex_);
                if (std::string(tag) == "Oak") test.reasons_ += std::string(message) + '\n';
            },
            this, 4);
    }

 private:
    std::mutex mutex_;
    std::string reasons_;
};

TEST_F(GatewayTest, AllRoadsOverHttp) {
    ASSERT_TRUE(Reach("plain"));
    WalkTheRoads();
}

TEST_F(GatewayTest, AllRoadsOverHttpsWithAFileOfAuthorities) {
    ASSERT_TRUE(Reach("tls", VELTRA_GATEWAYS "/ca.pem"));
    WalkTheRoads();
}

TEST_F(GatewayTest, AllRoadsOverHttpsWithAnImportedAuthority) {
    const ImportedAuthority authority;
    ASSERT_TRUE(Reach("tls"));
    WalkTheRoads();
}

TEST_F(GatewayTest, StrangeAuthorityIsRefused) {
    KeepReasons();
    EXPECT_FALSE(Reach("tls"));
    EXPECT_NE(Reasons().find("certificate"), std::string::npos) << Reasons();
}

TEST_F(GatewayTest, RejectedTokenIsRenewedOnce) {
    ASSERT_TRUE(Reach("plain"));
    EXPECT_TRUE(Veltra::Veltra_Unit());
    ASSERT_NE(gateways::Control("plain", "POST /control/expire-tokens").find(" 200 "),
              std::string::npos);
    EXPECT_NE(Ask("first"), "") << "rejected, and renewed on the way";
    EXPECT_NE(Ask("again").find("again"), std::string::npos);
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

TEST_F(GatewayTest, StalledCallsEndInTime) {
    ASSERT_TRUE(Reach("leading", "", 300));
    EXPECT_TRUE(Veltra::Veltra_Unit());
    KeepReasons();
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(Ask("late").find("late"), std::string::npos);
    EXPECT_LT(GetTickCount64() - begin, 10000U);
    EXPECT_NE(Reasons().find("time-out"), std::string::npos) << Reasons();
}

}  // namespace

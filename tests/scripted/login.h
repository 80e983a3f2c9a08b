#ifndef VELTRA_TESTS_SCRIPTED_LOGIN_H
#define VELTRA_TESTS_SCRIPTED_LOGIN_H

#include "AIManager.h"
#include "scripted/scripted_platform.h"

#include <Veltra/Veltra.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// What the tests on the scripted platform share.
namespace scripted {

using Lines = std::vector<std::string>;

inline Veltra::CAIManager& Manager() {
    return *Veltra::CAIManager::GetInstance();
}

inline std::shared_ptr<Veltra::CLicenseInfo> License(const Lines& names,
                                                     const std::string& version = "") {
    std::vector<Veltra::CAccessKey> keys;
    for (const auto& name : names)
        keys.push_back({name, kSecret + name});
    auto info = std::make_shared<Veltra::CLicenseInfo>();
    info->SetLicenseKey("text", keys);
    info->SetProductVersion(version);
    return info;
}

inline bool LogIn(const std::shared_ptr<Veltra::CLicenseInfo>& info = License({"k"})) {
    return Veltra::Veltra_Authentication(Veltra::ProductType::Default, info);
}

/// Probes go well from now on, and token requests as `accepted` says.
inline void AnswerTokens(bool accepted = true) {
    AnswerBy([accepted](const Request& request) {
        if (!IsTokenRequest(request)) return Ok("x");
        return accepted ? Ok(TokenBody("bearer-1")) : Lost();
    });
}

/// A process that is logged in, with the monitor stopped and nothing recorded.
class LoggedIn : public testing::Test {
 protected:
    LoggedIn() {
        Veltra::Veltra_Enable();
        AnswerTokens();
        EXPECT_TRUE(LogIn());
        Veltra::Veltra_Unit();
        ForgetRequests();
        StartRecording();
    }
};

}  // namespace scripted

#endif

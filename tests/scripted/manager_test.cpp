// Domains, the token request, key rotation, the login: what is sent, in which order, and what is
// logged and kept.

#include "AIManager.h"
#include "scripted/scripted_platform.h"

#include <Veltra/Veltra.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using scripted::Answer;
using scripted::kProduction;
using scripted::kTest;
using Lines = std::vector<std::string>;

Veltra::CAIManager& Manager() {
    return *Veltra::CAIManager::GetInstance();
}

std::shared_ptr<Veltra::CLicenseInfo> License(const std::vector<std::string>& names,
                                              const std::string& version = "") {
    std::vector<Veltra::CAccessKey> keys;
    for (const auto& name : names)
        keys.push_back({name, scripted::kSecret + name});
    auto info = std::make_shared<Veltra::CLicenseInfo>();
    info->SetLicenseKey("text", keys);
    info->SetProductVersion(version);
    return info;
}

bool LogIn(const std::shared_ptr<Veltra::CLicenseInfo>& info) {
    return Veltra::Veltra_Authentication(Veltra::ProductType::Default, info);
}

std::string TokenRequest(const std::string& domain, const std::string& name) {
    const std::string secret = name.empty() ? "" : scripted::kSecret + name;
    return "POST " + domain + scripted::kTokenPath + R"( {"appKey":")" + name +
           R"(","secretKey":")" + secret + R"("})";
}

/// Answers token requests by key name and domain; probes with success.
void AcceptOnly(const std::string& name, const std::string& domain = "") {
    scripted::AnswerBy([=](const scripted::Request& request) {
        if (!scripted::IsTokenRequest(request)) return scripted::Ok("{}");
        const bool accepted = request.Data().find("\"" + name + "\"") != std::string::npos &&
                              (domain.empty() || request.Url().Text().find(domain) == 0);
        return accepted ? scripted::Ok(scripted::TokenBody("bearer-" + name)) : scripted::Lost();
    });
}

class ManagerTest : public testing::Test {
 protected:
    ManagerTest() { scripted::StartRecording(); }
    ~ManagerTest() override { Veltra::Veltra_Unit(); }
};

TEST_F(ManagerTest, FreshProcess) {
    EXPECT_FALSE(Veltra::Veltra_IsEnable());
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    EXPECT_FALSE(Veltra::Veltra_IsDomainValid("https://a"));
    EXPECT_FALSE(LogIn(License({"k"})));
    EXPECT_EQ(scripted::Records(), (Lines{"5 Veltra_IsLLMServiceValid|veltra is not enable",
                                          "5 Veltra_IsDomainValid|veltra is not enable",
                                          "3 Veltra_Authentication|authening..",
                                          "5 Veltra_Authentication|veltra is not enable"}));
    EXPECT_EQ(scripted::Requests(), Lines{});
    EXPECT_EQ(Manager().GetToken(), "");
    EXPECT_EQ(Manager().GetDomian(), kTest);
    EXPECT_EQ(Manager().GetProductVersion(), "un_known");

    scripted::ForgetRecords();
    EXPECT_TRUE(Veltra::Veltra_Unit());  // nothing to stop: nothing to say
    EXPECT_TRUE(Veltra::Veltra_Enable());
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    EXPECT_TRUE(Veltra::Veltra_Disable());
    EXPECT_EQ(scripted::Records(), (Lines{"3 CAIManager::Enable|veltra enable.",
                                          "3 CAIManager::Disable|veltra disable."}));
}

TEST_F(ManagerTest, FirstCallsAtOnceMeetOneInstance) {
    std::atomic<bool> go{false};
    std::vector<Veltra::CAIManager*> found(8);
    std::vector<std::thread> threads;
    for (auto& each : found) {
        threads.emplace_back([&go, &each] {
            while (!go)
                std::this_thread::yield();
            each = Veltra::CAIManager::GetInstance();
        });
    }
    go = true;
    for (auto& thread : threads)
        thread.join();
    for (const auto* each : found)
        EXPECT_EQ(each, found[0]);
}

TEST_F(ManagerTest, ProbeRequestAndOutcomes) {
    std::vector<scripted::Request> sent;
    scripted::AnswerBy([&](const scripted::Request& request) {
        sent.push_back(request);
        return scripted::Ok(R"({"errorCode":"9"})");
    });
    EXPECT_TRUE(Manager().IsDomianValid("https://a/"));
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].Method(), "POST");
    EXPECT_EQ(sent[0].Url().Text(), std::string("https://a/") + scripted::kQueryPath);
    EXPECT_EQ(sent[0].ContentType(), "application/json");
    EXPECT_TRUE(sent[0].Headers().empty());
    EXPECT_EQ(sent[0].Data(), "");

    const std::string name = "5 CAIManager::IsDomianValid|";
    const std::string with500 = name + "http client send message failed,errcode:500,domian is :d";
    const std::string failed = name + "http client send message failed,domian is :d";
    const struct {
        std::vector<Answer> answers;
        bool valid;
        std::size_t requests;
        Lines records;
    } cases[] = {
        {{scripted::Lost(), scripted::Lost(), scripted::Ok("x")}, true, 3, {}},
        {{scripted::Status(500), scripted::Status(500), scripted::Ok("x")},
         true,
         3,
         {with500, with500}},
        {{scripted::Lost(), scripted::Lost(), scripted::Lost(), scripted::Ok("x")},
         false,
         3,
         {failed}},
        {{scripted::Status(500), scripted::Lost(), scripted::Status(500)},
         false,
         3,
         {with500, with500, failed}},
        {{scripted::Ok("")}, false, 1, {name + "response is empty,domian is :d"}},
        {{scripted::Status(500, "old"), scripted::Ok("")},
         false,
         2,
         {with500, name + "response is empty,domian is :d"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(&each - cases);
        scripted::ForgetRequests();
        scripted::ForgetRecords();
        scripted::AnswerInOrder(each.answers);
        EXPECT_EQ(Manager().IsDomianValid("d"), each.valid);
        EXPECT_EQ(scripted::Requests().size(), each.requests);
        EXPECT_EQ(scripted::Records(), each.records);
    }
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());  // a probe by itself changes nothing
}

TEST_F(ManagerTest, ConfiguredDomain) {
    scripted::AnswerInOrder({scripted::Ok("x"), scripted::Ok("x")});
    EXPECT_TRUE(Veltra::Veltra_SetDomain("https://own"));  // works while disabled
    EXPECT_FALSE(Veltra::Veltra_SetDomain(""));            // probed, never stored
    EXPECT_FALSE(Veltra::Veltra_SetDomain("https://other"));
    EXPECT_EQ(Manager().GetConfigDomain(), "https://own");
    EXPECT_EQ(scripted::Records(),
              (Lines{"3 CAIManager::SetConfigDomain|Set config domian https://own",
                     "5 CAIManager::IsDomianValid|http client send message failed,domian is "
                     ":https://other"}));
    EXPECT_EQ(scripted::Requests()[1], std::string("POST ") + scripted::kQueryPath + " ");
}

TEST_F(ManagerTest, TokenRequestAndOutcomes) {
    std::vector<scripted::Request> sent;
    scripted::AnswerBy([&](const scripted::Request& request) {
        sent.push_back(request);
        return scripted::Ok(scripted::TokenBody("t", "D"));
    });
    std::string token;
    std::string domain;
    std::int64_t expiry = 0;
    ASSERT_TRUE(Veltra::TokenMessage::GetToekn("https://a", "k\"1", scripted::kSecret, token,
                                               expiry, domain));
    EXPECT_EQ(token + "," + domain + "," + std::to_string(expiry), "t,D,7200");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].Url().Text(), "https://a/api/tmqgw/v1/token/get");
    EXPECT_EQ(sent[0].Data(), R"({"appKey":"k"1","secretKey":"a-secret-key"})");
    EXPECT_EQ(sent[0].ContentType(), "");
    using Field = scripted::Request::HeaderField;
    EXPECT_EQ(sent[0].Headers(), (std::vector<Field>{{"Content-Type", "application/json"}}));

    const auto with = [](const std::string& expire) {
        return R"({"errorCode":0,"data":{"accessToken":"t","expireTime":)" + expire +
               R"(,"areaDomain":"D"}})";
    };
    const auto incomplete = [](const std::string& body) {
        return Lines{"Request get token failed,rsp is:" + body, "Request get token failed"};
    };
    const std::string noDomain = R"({"errorCode":"0","data":{"accessToken":"t","expireTime":"1"}})";
    const std::string refused = R"({"errorCode":1001,"message":"m"})";
    const struct {
        Answer answer;
        Lines records;  // empty: success
        std::int64_t expiry;
    } cases[] = {
        {scripted::Lost(), {"Request get token failed"}, 0},
        {scripted::Status(401, scripted::TokenBody("t")),
         {"Request get token status_code =401"},
         0},
        {scripted::Ok(""), {"Request get token failed,response is empty"}, 0},
        {scripted::Ok("<html>"), incomplete("<html>"), 0},
        {scripted::Ok("[]"), {"Request get token failed,get errorcode:,rsp is:[]"}, 0},
        {scripted::Ok(refused),
         {"Request get token failed,get errorcode:1001,rsp is:" + refused},
         0},
        {scripted::Ok(noDomain), incomplete(noDomain), 0},
        {scripted::Ok(with("\"\"")), incomplete(with("\"\"")), 0},
        {scripted::Ok(with("\"soon\"")), incomplete(with("\"soon\"")), 0},
        {scripted::Ok(with("\"+-5\"")), incomplete(with("\"+-5\"")), 0},
        {scripted::Ok(with("9223372036854775808")), incomplete(with("9223372036854775808")), 0},
        {scripted::Ok(with("7200")), {}, 7200},
        {scripted::Ok(with("\"7200s\"")), {}, 7200},
        {scripted::Ok(with("\" \\t+12.9\"")), {}, 12},
        {scripted::Ok(with("\"-9223372036854775808\"")), {}, INT64_MIN},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.answer.body);
        scripted::ForgetRecords();
        scripted::AnswerInOrder({each.answer});
        token = domain = "before";
        expiry = -7;
        const bool got =
            Veltra::TokenMessage::GetToekn("a", "k", scripted::kSecret, token, expiry, domain);
        Lines expected{"3 TokenMessage::GetToekn|get token use domain :a"};
        for (const auto& record : each.records) {
            expected.push_back("5 TokenMessage::GetToekn|" + record);
        }
        EXPECT_EQ(scripted::Records(), expected);
        EXPECT_EQ(got, each.records.empty());
        EXPECT_EQ(token + domain, got ? "tD" : "beforebefore");
        EXPECT_EQ(expiry, got ? each.expiry : -7);
    }
}

TEST_F(ManagerTest, LoginLogsAndStores) {
    AcceptOnly("k");
    Veltra::Veltra_Enable();
    scripted::ForgetRecords();
    EXPECT_TRUE(LogIn(License({"k"}, "5.1.0")));
    const Lines all = scripted::Records();
    const Lines records(all.begin(), all.begin() + 8);  // then come those of the monitor's check
    EXPECT_EQ(records,
              (Lines{"3 Veltra_Authentication|authening..",
                     "3 Veltra_Authentication|product version:5.1.0",
                     "3 Veltra_Authentication|veltra is enable,begin authen.",
                     std::string("3 TokenMessage::GetToekn|get token use domain :") + kProduction,
                     "3 CAIManager::renewAuthenticationToken|get token success",
                     "3 CAIManager::SetDomian|set llm domain:https://llm.test",
                     "3 CAIManager::start|monitorThread_ begin.",
                     "3 Veltra_Authentication|authen success"}));
    EXPECT_EQ(Manager().GetToken(), "bearer-k");
    EXPECT_EQ(Manager().GetDomian(), "https://llm.test");
    EXPECT_EQ(Manager().GetProductVersion(), "5.1.0");

    AcceptOnly("nobody");
    scripted::ForgetRecords();
    EXPECT_FALSE(LogIn(License({}, "")));
    EXPECT_EQ(scripted::Records().back(), "5 Veltra_Authentication|authen failed");
    EXPECT_FALSE(Manager().IsLLMServiceValid());
    EXPECT_EQ(Manager().GetToken(), "bearer-k");  // the token before is kept
    EXPECT_EQ(Manager().GetProductVersion(), "5.1.0");
}

TEST_F(ManagerTest, LoginGuards) {
    Veltra::Veltra_Enable();
    scripted::ForgetRecords();
    EXPECT_FALSE(LogIn(nullptr));
    auto moved = License({"k"});
    const Veltra::CLicenseInfo taken(std::move(*moved));
    EXPECT_FALSE(LogIn(moved));
    scripted::ReactToRecords([](const std::string& record) {
        if (record.find("product version") != std::string::npos) Veltra::Veltra_Disable();
    });
    EXPECT_FALSE(LogIn(License({"k"}, "7")));
    const std::string name = "Veltra_Authentication|";
    EXPECT_EQ(scripted::Records(),
              (Lines{"3 " + name + "authening..", "5 " + name + "auth_info ptr is nullptr",
                     "3 " + name + "authening..", "5 " + name + "auth_info manager ptr is nullptr",
                     "3 " + name + "authening..", "3 " + name + "product version:7",
                     "4 " + name + "veltra is not enable"}));
    EXPECT_EQ(Manager().GetProductVersion(), "7");
    EXPECT_EQ(scripted::Requests(), Lines{});
}

TEST_F(ManagerTest, LoginWithoutPairsOnAFreshProcess) {
    Veltra::Veltra_Enable();
    EXPECT_FALSE(LogIn(License({})));
    EXPECT_EQ(scripted::Requests(),
              (Lines{TokenRequest(kProduction, ""), TokenRequest(kTest, "")}));
    EXPECT_EQ(scripted::Records()[2], "5 Veltra_Authentication|authen keys is empty!");
}

TEST_F(ManagerTest, PairsAreTriedForwardOnly) {
    Veltra::Veltra_Enable();
    AcceptOnly("P2", kTest);
    EXPECT_TRUE(LogIn(License({"P1", "P2", "P3"})));
    Veltra::Veltra_Unit();
    EXPECT_EQ(scripted::RequestsButProbes(),
              (Lines{TokenRequest(kProduction, "P1"), TokenRequest(kTest, "P1"),
                     TokenRequest(kProduction, "P2"), TokenRequest(kTest, "P2")}));

    const auto renew = [](bool expected) {
        scripted::ForgetRequests();
        EXPECT_EQ(Manager().renewAuthenticationToken({}, false), expected);
        return scripted::Requests();
    };
    EXPECT_EQ(renew(true), (Lines{TokenRequest(kProduction, "P2"), TokenRequest(kTest, "P2")}));

    AcceptOnly("P1");  // lies behind: never tried again
    EXPECT_EQ(renew(false), (Lines{TokenRequest(kProduction, "P2"), TokenRequest(kTest, "P2"),
                                   TokenRequest(kProduction, "P3"), TokenRequest(kTest, "P3")}));
    EXPECT_EQ(renew(false), (Lines{TokenRequest(kProduction, "P3"), TokenRequest(kTest, "P3")}));

    // A login with pairs goes back to the first of all; one without stays where it is.
    AcceptOnly("Q1", kProduction);
    scripted::ForgetRequests();
    EXPECT_TRUE(LogIn(License({"Q1", "Q2"})));
    Veltra::Veltra_Unit();
    Lines expected;
    for (const char* name : {"P1", "P2", "P3"}) {
        expected.push_back(TokenRequest(kProduction, name));
        expected.push_back(TokenRequest(kTest, name));
    }
    expected.push_back(TokenRequest(kProduction, "Q1"));
    EXPECT_EQ(scripted::RequestsButProbes(), expected);

    AcceptOnly("Q2", kProduction);
    scripted::ForgetRequests();
    EXPECT_TRUE(LogIn(License({})));
    Veltra::Veltra_Unit();
    EXPECT_EQ(scripted::RequestsButProbes(),
              (Lines{TokenRequest(kProduction, "Q1"), TokenRequest(kTest, "Q1"),
                     TokenRequest(kProduction, "Q2")}));

    // The configured domain alone, once it is set.
    ASSERT_TRUE(Veltra::Veltra_SetDomain("https://own"));
    AcceptOnly("nobody");
    EXPECT_EQ(renew(false), Lines{TokenRequest("https://own", "Q2")});
}

TEST_F(ManagerTest, RenewalWithoutPairs) {
    EXPECT_FALSE(Manager().renewAuthenticationToken({}, false));
    EXPECT_EQ(scripted::Records(),
              Lines{"5 CAIManager::renewAuthenticationToken|get token failed,no ak/sk can use"});
    EXPECT_EQ(scripted::Requests(), Lines{});
}

TEST_F(ManagerTest, TokenIsRenewedAfterTwelveHours) {
    Veltra::Veltra_Enable();
    AcceptOnly("k");
    constexpr std::int64_t kLogin = 1'000'000;
    constexpr std::int64_t kLifetime = 43'200'000;
    scripted::SetNow(kLogin);
    ASSERT_TRUE(LogIn(License({"k"})));
    Veltra::Veltra_Unit();
    const struct {
        std::int64_t now;
        bool renewed;
    } cases[] = {{kLogin + kLifetime - 60'000, false},
                 {kLogin + kLifetime, false},
                 {kLogin - kLifetime, false},  // the clock was set back
                 {kLogin + kLifetime + 1, true},
                 {kLogin + kLifetime + 2, false}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.now - kLogin);
        scripted::ForgetRequests();
        scripted::SetNow(each.now);
        Manager().checkTokenValidity();
        EXPECT_EQ(scripted::TokenRequests(), each.renewed ? 1U : 0U);
    }
}

TEST_F(ManagerTest, HandlesShareTheirRecord) {
    Veltra::CLicenseInfo first;
    Veltra::CLicenseInfo second(first);
    second.SetLicenseKey("text", {{"old", scripted::kSecret}, {"older", scripted::kSecret}});
    second.SetLicenseKey("text", {{"new", scripted::kSecret}});
    Veltra::Veltra_Enable();
    AcceptOnly("new");
    EXPECT_TRUE(LogIn(std::make_shared<Veltra::CLicenseInfo>(first)));

    Veltra::CLicenseInfo taken(std::move(first));
    first.SetProductVersion("x");  // NOLINT(bugprone-use-after-move): defined, does nothing
    EXPECT_EQ(first.GetPtrManager(), nullptr);
    first = taken;
    EXPECT_EQ(first.GetPtrManager(), second.GetPtrManager());
}

}  // namespace

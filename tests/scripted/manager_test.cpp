// Domains, the token request, key rotation, the login: what is sent, in which order, and what is
// logged and kept.

#include "scripted/login.h"

#include <barrier>
#include <thread>

namespace {

using scripted::Answer;
using scripted::kProduction;
using scripted::kTest;
using scripted::License;
using scripted::Lines;
using scripted::LogIn;
using scripted::Manager;

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
    std::barrier together(8);
    std::vector<Veltra::CAIManager*> found(8);
    std::vector<std::thread> threads;
    for (auto& each : found) {
        threads.emplace_back([&together, &each] {
            together.arrive_and_wait();
            each = Veltra::CAIManager::GetInstance();
        });
    }
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
    const std::string failed = name + "http client send message failed,";
    const std::string with500 = failed + "errcode:500,domian is :d";
    const struct {
        std::vector<Answer> answers;
        bool valid;
        Lines records;
    } cases[] = {
        // all of the answers are fetched, and no more
        {{scripted::Lost(), scripted::Status(500), scripted::Ok("x")}, true, {with500}},
        {{scripted::Status(500), scripted::Lost(), scripted::Status(500)},
         false,
         {with500, with500, failed + "domian is :d"}},
        {{scripted::Status(500, "old"), scripted::Ok("")},
         false,
         {with500, name + "response is empty,domian is :d"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(&each - cases);
        scripted::ForgetRequests();
        scripted::ForgetRecords();
        scripted::AnswerInOrder(each.answers);
        EXPECT_EQ(Manager().IsDomianValid("d"), each.valid);
        EXPECT_EQ(scripted::Requests().size(), each.answers.size());
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
        return scripted::Ok(scripted::TokenBody("bearer-1", "D"));
    });
    std::string token;
    std::string domain;
    std::int64_t expiry = 0;
    ASSERT_TRUE(Veltra::TokenMessage::GetToekn("https://a", "k\"1", scripted::kSecret, token,
                                               expiry, domain));
    EXPECT_EQ(token + "," + domain + "," + std::to_string(expiry), "bearer-1,D,7200");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].Url().Text(), "https://a/api/tmqgw/v1/token/get");
    EXPECT_EQ(sent[0].Data(), R"({"appKey":"k"1","secretKey":"a-secret-key"})");
    EXPECT_EQ(sent[0].ContentType(), "");
    using Field = scripted::Request::HeaderField;
    EXPECT_EQ(sent[0].Headers(), (std::vector<Field>{{"Content-Type", "application/json"}}));

    // What else the gateway may answer: see the fault matrix.
    const struct {
        const char* expiry;
        std::int64_t expected;
        bool good = true;
    } cases[] = {{R"("")", 0, false},    {R"("soon")", 0, false},
                 {R"("+-5")", 0, false}, {"9223372036854775808", 0, false},
                 {"7200", 7200},         {R"("7200s")", 7200},
                 {R"(" \t+12.9")", 12},  {R"("-9223372036854775808")", INT64_MIN}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.expiry);
        scripted::AnswerInOrder(
            {scripted::Ok(R"({"errorCode":0,"data":{"accessToken":"t","expireTime":)" +
                          std::string(each.expiry) + R"(,"areaDomain":"D"}})")});
        token = domain = "before";
        expiry = -7;
        EXPECT_EQ(
            Veltra::TokenMessage::GetToekn("a", "k", scripted::kSecret, token, expiry, domain),
            each.good);
        EXPECT_EQ(token + domain, each.good ? "tD" : "beforebefore");
        EXPECT_EQ(expiry, each.good ? each.expected : -7);
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

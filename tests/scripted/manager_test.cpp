// Domains, the token request, key rotation, the login: what is sent, in which order, and what is
// logged and kept.

#include "HostCall.h"
#include "scripted/login.h"

namespace {

using namespace scripted;

std::string TokenRequest(const std::string& domain, const std::string& name) {
    const std::string secret = name.empty() ? "" : kSecret + name;
    return "POST " + domain + kTokenPath + R"( {"appKey":")" + name + R"(","secretKey":")" +
           secret + R"("})";
}

/// Requests for each of these pairs, at the production endpoint first, and then for one that was
/// found good at once.
Lines Tried(const Lines& names, const std::string& good = "") {
    Lines requests;
    for (const auto& name : names) {
        requests.push_back(TokenRequest(kProduction, name));
        requests.push_back(TokenRequest(kTest, name));
    }
    if (!good.empty()) requests.push_back(TokenRequest(kProduction, good));
    return requests;
}

/// Answers token requests by key name and domain; probes with success.
void AcceptOnly(const std::string& name, const std::string& domain = "") {
    AnswerBy([=](const Request& request) {
        if (!IsTokenRequest(request)) return Ok("{}");
        const bool accepted = request.Data().find("\"" + name + "\"") != std::string::npos &&
                              (domain.empty() || request.Url().Text().find(domain) == 0);
        return accepted ? Ok(TokenBody("bearer-" + name)) : Lost();
    });
}

class ManagerTest : public testing::Test {
 protected:
    ManagerTest() { StartRecording(); }
    ~ManagerTest() override { Veltra::Veltra_Unit(); }
};

TEST_F(ManagerTest, FreshProcess) {
    EXPECT_FALSE(Veltra::Veltra_IsEnable());
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    EXPECT_FALSE(Veltra::Veltra_IsDomainValid("https://a"));
    EXPECT_FALSE(LogIn());
    EXPECT_EQ(Records(), (Lines{"5 Veltra_IsLLMServiceValid|veltra is not enable",
                                "5 Veltra_IsDomainValid|veltra is not enable",
                                "3 Veltra_Authentication|authening..",
                                "5 Veltra_Authentication|veltra is not enable"}));
    EXPECT_EQ(Requests(), Lines{});
    EXPECT_EQ(Manager().GetToken(), "");
    EXPECT_EQ(Manager().GetDomian(), kTest);
    EXPECT_EQ(Manager().GetProductVersion(), "un_known");

    ForgetRecords();
    EXPECT_TRUE(Veltra::Veltra_Unit());  // nothing to stop: nothing to say
    EXPECT_TRUE(Veltra::Veltra_Enable());
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    EXPECT_TRUE(Veltra::Veltra_Disable());
    EXPECT_EQ(Records(), (Lines{"3 CAIManager::Enable|veltra enable.",
                                "3 CAIManager::Disable|veltra disable."}));

    Veltra::Veltra_Enable();
    ForgetRecords();
    EXPECT_FALSE(LogIn(License({}))) << "asks without a pair, all the same";
    EXPECT_EQ(Requests(), Tried({""}));
    EXPECT_EQ(Records()[1], "5 Veltra_Authentication|authen keys is empty!");
}

TEST_F(ManagerTest, ProbeRequestAndOutcomes) {
    AnswerInOrder({Ok(R"({"errorCode":"9"})")});
    EXPECT_TRUE(Manager().IsDomianValid("https://a/"));
    EXPECT_EQ(WholeRequests(),
              Lines{std::string("POST https://a/") + kQueryPath + "\ntype application/json\n"});

    const std::string name = "5 CAIManager::IsDomianValid|";
    const std::string failed = name + "http client send message failed,";
    const std::string with500 = failed + "errcode:500,domian is :d";
    const struct {
        std::vector<Answer> answers;
        bool valid;
        Lines records;
    } cases[] = {
        // all of the answers are fetched, and no more
        {{Lost(), Status(500), Ok("x")}, true, {with500}},
        {{Status(500), Lost(), Status(500)}, false, {with500, with500, failed + "domian is :d"}},
        {{Status(500, "old"), Ok("")}, false, {with500, name + "response is empty,domian is :d"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(&each - cases);
        ForgetRequests();
        ForgetRecords();
        AnswerInOrder(each.answers);
        EXPECT_EQ(Manager().IsDomianValid("d"), each.valid);
        EXPECT_EQ(Requests().size(), each.answers.size());
        EXPECT_EQ(Records(), each.records);
    }
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());  // a probe by itself changes nothing
}

TEST_F(ManagerTest, ConfiguredDomain) {
    AnswerInOrder({Ok("x"), Ok("x")});
    EXPECT_TRUE(Veltra::Veltra_SetDomain("https://own"));  // works while disabled
    EXPECT_FALSE(Veltra::Veltra_SetDomain(""));            // probed, never stored
    EXPECT_FALSE(Veltra::Veltra_SetDomain("https://other"));
    EXPECT_EQ(Manager().GetConfigDomain(), "https://own");
    EXPECT_EQ(Records(),
              (Lines{"3 CAIManager::SetConfigDomain|Set config domian https://own",
                     "5 CAIManager::IsDomianValid|http client send message failed,domian is "
                     ":https://other"}));
    EXPECT_EQ(Requests()[1], std::string("POST ") + kQueryPath + " ");
}

TEST_F(ManagerTest, TokenRequestAndOutcomes) {
    AnswerInOrder({Ok(TokenBody("bearer-1", "D"))});
    std::string token;
    std::string domain;
    std::int64_t expiry = 0;
    ASSERT_TRUE(
        Veltra::TokenMessage::GetToekn("https://a", "k\"1", kSecret, token, expiry, domain));
    EXPECT_EQ(token + "," + domain + "," + std::to_string(expiry), "bearer-1,D,7200");
    EXPECT_EQ(WholeRequests(),
              Lines{"POST https://a/api/tmqgw/v1/token/get\ntype \nContent-Type: application/json\n"
                    R"({"appKey":"k"1","secretKey":"a-secret-key"})"});

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
        AnswerInOrder({Ok(R"({"errorCode":0,"data":{"accessToken":"t","expireTime":)" +
                          std::string(each.expiry) + R"(,"areaDomain":"D"}})")});
        token = domain = "before";
        expiry = -7;
        EXPECT_EQ(Veltra::TokenMessage::GetToekn("a", "k", kSecret, token, expiry, domain),
                  each.good);
        EXPECT_EQ(token + domain, each.good ? "tD" : "beforebefore");
        EXPECT_EQ(expiry, each.good ? each.expected : -7);
    }
}

TEST_F(ManagerTest, LoginLogsAndStores) {
    AcceptOnly("k");
    Veltra::Veltra_Enable();
    ForgetRecords();
    const auto info = License({"k"}, "5.1.0");
    ReactToRecords([&info](const std::string& record) {  // the login goes on with what it was given
        if (record.find("product version") == record.npos) return;
        info->SetLicenseKey("text", {{"other", kSecret}});
        info->SetProductVersion("9");
    });
    EXPECT_TRUE(LogIn(info));
    ReactToRecords(nullptr);
    const Lines all = Records();
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

    Veltra::Veltra_Unit();  // whose first check may find the service well only now
    AcceptOnly("nobody");
    ForgetRecords();
    EXPECT_FALSE(LogIn(License({}, "")));
    EXPECT_EQ(Records().back(), "5 Veltra_Authentication|authen failed");
    EXPECT_FALSE(Manager().IsLLMServiceValid());
    EXPECT_EQ(Manager().GetToken(), "bearer-k");  // the token before is kept
    EXPECT_EQ(Manager().GetProductVersion(), "5.1.0");
}

TEST_F(ManagerTest, LoginGuards) {
    Veltra::Veltra_Enable();
    ForgetRecords();
    EXPECT_FALSE(LogIn(nullptr));
    auto moved = License({"k"});
    const Veltra::CLicenseInfo taken(std::move(*moved));
    moved->SetLicenseKey("ignored", {});
    moved->SetProductVersion("ignored");
    EXPECT_FALSE(LogIn(moved));
    ReactToRecords([](const std::string& record) {
        if (record.find("product version") != std::string::npos) Veltra::Veltra_Disable();
    });
    EXPECT_FALSE(LogIn(License({"k"}, "7")));
    const std::string name = "Veltra_Authentication|";
    EXPECT_EQ(Records(),
              (Lines{"3 " + name + "authening..", "5 " + name + "auth_info ptr is nullptr",
                     "3 " + name + "authening..", "5 " + name + "auth_info manager ptr is nullptr",
                     "3 " + name + "authening..", "3 " + name + "product version:7",
                     "4 " + name + "veltra is not enable"}));
    EXPECT_EQ(Manager().GetProductVersion(), "7");
    EXPECT_EQ(Requests(), Lines{});
}

TEST_F(ManagerTest, PairsAreTriedForwardOnly) {
    Veltra::Veltra_Enable();
    AcceptOnly("P2", kTest);
    EXPECT_TRUE(LogIn(License({"P1", "P2", "P3"})));
    Veltra::Veltra_Unit();
    EXPECT_EQ(RequestsButProbes(), Tried({"P1", "P2"}));

    const auto renew = [](bool expected) {
        ForgetRequests();
        EXPECT_EQ(Manager().renewAuthenticationToken({}, false), expected);
        return Requests();
    };
    EXPECT_EQ(renew(true), Tried({"P2"}));

    AcceptOnly("P1");  // lies behind: never tried again
    EXPECT_EQ(renew(false), Tried({"P2", "P3"}));
    EXPECT_EQ(renew(false), Tried({"P3"}));

    // A login with pairs goes back to the first of all; one without stays where it is.
    AcceptOnly("Q1", kProduction);
    ForgetRequests();
    EXPECT_TRUE(LogIn(License({"Q1", "Q2"})));
    Veltra::Veltra_Unit();
    EXPECT_EQ(RequestsButProbes(), Tried({"P1", "P2", "P3"}, "Q1"));

    AcceptOnly("Q2", kProduction);
    ForgetRequests();
    EXPECT_TRUE(LogIn(License({})));
    Veltra::Veltra_Unit();
    EXPECT_EQ(RequestsButProbes(), Tried({"Q1"}, "Q2"));

    // The configured domain alone, once it is set.
    ASSERT_TRUE(Veltra::Veltra_SetDomain("https://own"));
    AcceptOnly("nobody");
    EXPECT_EQ(renew(false), Lines{TokenRequest("https://own", "Q2")});
}

TEST_F(ManagerTest, RenewalWithoutPairs) {
    Manager().SetLLMServiceValid(true);
    EXPECT_FALSE(Manager().renewAuthenticationToken({}, false));
    EXPECT_EQ(Records(),
              Lines{"5 CAIManager::renewAuthenticationToken|get token failed,no ak/sk can use"});
    EXPECT_FALSE(Manager().IsLLMServiceValid());
    EXPECT_EQ(Requests(), Lines{});
}

TEST_F(ManagerTest, HandlesShareTheirRecord) {
    Veltra::CLicenseInfo first;
    Veltra::CLicenseInfo second(first);
    second.SetLicenseKey("text", {{"old", kSecret}, {"older", kSecret}});
    second.SetLicenseKey("text", {{"new", kSecret}});
    Veltra::Veltra_Enable();
    AcceptOnly("new");
    EXPECT_TRUE(LogIn(std::make_shared<Veltra::CLicenseInfo>(first)));

    Veltra::CLicenseInfo taken(std::move(first));
    first.SetProductVersion("x");  // NOLINT(bugprone-use-after-move): defined, does nothing
    EXPECT_EQ(first.GetPtrManager(), nullptr);
    first = taken;
    EXPECT_EQ(first.GetPtrManager(), second.GetPtrManager());
}

TEST(HostCallTest, NoneIsAdmittedAfterTheClose) {
    ASSERT_TRUE(Veltra::Veltra_Enable());
    Veltra::HostCall::Close();
    EXPECT_FALSE(Veltra::HostCall());
    EXPECT_FALSE(Veltra::HostCall::AnyUnderWay());
    EXPECT_FALSE(Veltra::Veltra_IsEnable());
}

}  // namespace

// A model behind the local gateway, against a stand-in for its server.

#include "gateway/turns.h"
#include "support/gateway_client.h"
#include "support/model_stand_in.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace TestSupport;
using gateway::FaultKind;
using gateway::Options;

constexpr auto kQuery = gateway::kQueryPath;
constexpr const char* kKey = "sk-1234";

class ModelTest : public testing::TestWithParam<bool> {
 protected:
    ModelTest() { std::ofstream(caFile_) << standIn_.caPem(); }
    ~ModelTest() override { std::filesystem::remove(caFile_); }

    Options With(std::chrono::milliseconds timeout = 60s, std::size_t concurrency = 4) const {
        Options options;
        options.recordAnswers = true;
        options.model.url = standIn_.baseUrl() + "/v1/";
        options.model.name = "tiny";
        options.model.key = kKey;
        if (GetParam()) options.model.caFile = caFile_;
        options.model.timeout = timeout;
        options.model.concurrency = concurrency;
        options.model.maxAnswerBytes = 20000;
        options.templates = {{"say", "{{it}}"},
                             {"full", "{{it}}!", "Be \"brief\".", "big", 0.5, 9}};
        return options;
    }
    /// What a query with that element, as it stands in JSON, is answered with.
    static std::string Ask(RunningGateway& gateway, const std::string& it, const char* key = "say",
                           const char* tags = "", long limitMs = 60000) {
        const auto body = QueryBody(key, "\"it\":\"" + it + '"', "", tags);
        return Send(gateway.baseUrl() + std::string(kQuery), "", body, gateway.Token(), "POST", {},
                    limitMs)
            .body;
    }
    static std::string Result(const std::string& text) {
        return R"({"errorCode":"0","message":"","data":{"resultStr":")" + text + "\"}}";
    }

    ModelStandIn standIn_{GetParam()};
    const std::string caFile_ =
        testing::TempDir() + "model_test." + std::to_string(standIn_.port()) + ".pem";
};
INSTANTIATE_TEST_SUITE_P(, ModelTest, testing::Bool(),
                         [](const auto& variant) { return variant.param ? "Https" : "Http"; });

TEST_P(ModelTest, AsksByteForByteAndHandsTheAnswerOn) {
    RunningGateway gateway(With());
    const std::string text =
        "\\\"\\\\\\n\\u0001/ \xc3\xa9 \xf0\x9f\x98\x80 \xd7\xa9 <script>{{it}}";
    EXPECT_EQ(Ask(gateway, text), Result(text));
    EXPECT_EQ(Ask(gateway, "so", "full"), Result("so!"));
    const auto asked = standIn_.requests();
    ASSERT_EQ(asked.size(), 2U);
    EXPECT_EQ(asked[0].body,
              R"({"model":"tiny","messages":[{"role":"user","content":")" + text + "\"}]}");
    EXPECT_EQ(asked[1].body,
              R"({"model":"big","messages":[{"role":"system","content":"Be \"brief\"."},)"
              R"({"role":"user","content":"so!"}],"temperature":0.5,"max_tokens":9})");
    EXPECT_EQ(asked[0].method + asked[0].path, "POST/v1/chat/completions");
    EXPECT_EQ(asked[0].header("Authorization"), std::string("Bearer ") + kKey);
    EXPECT_EQ(asked[0].header("Content-Type"), "application/json");
    EXPECT_EQ(asked[0].header("Accept-Encoding"), "");
    const auto call = gateway.exchanges().changed.back().answer.value().model.value();
    EXPECT_EQ(call.model + ' ' + call.prompt + ' ' + call.answer, "big so! so!");
    EXPECT_EQ(call.promptTokens.value_or(0) * 10 + call.answerTokens.value_or(0), 75);
    EXPECT_EQ(gateway.exchanges().changed.back().answer.value().traceId, "t");
    EXPECT_EQ(standIn_.connections(), 1U) << "the connection is kept";
    standIn_.closeIdleConnections();
    EXPECT_EQ(Ask(gateway, "again"), Result("again"));
    standIn_.sendUnasked("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
    EXPECT_EQ(Ask(gateway, "mine"), Result("mine"));
}

TEST_P(ModelTest, TellsEachFailureByItsCode) {
    RunningGateway patient(With());
    RunningGateway hasty(With(GetParam() ? 1000ms : 300ms));
    const auto fails = [this](FaultKind kind) { standIn_.addFault({"", kind, 5, "", "", 1}); };
    const auto says = [this](int status, const auto& body) { standIn_.Answer(status, body); };
    const auto answers = ModelStandIn::Says;
    const struct {
        std::function<void()> happens;
        std::string code, part, tags = "";
    } cases[] = {
        {[&] { says(404, R"({"error":{"message":"no \"tiny\" here"}})"); }, "502003",
         R"(status 404: \"no \"tiny\" here\")"},
        {[&] { says(429, R"({"error":"later"})"); }, "502003", "later"},
        {[&] { says(401, std::string("wrong key sk-1234, LAP500004CCF083001")); }, "502003",
         "wrong key ..., ......"},
        {[&] { says(302, std::string()); }, "502003", "no message"},
        {[&] { says(500, std::string(299, 'x') + "\xc3\xa9!"); }, "502003",
         std::string(299, 'x') + "...\\\""},
        {[&] { says(200, std::string("{\"choices\":")); }, "502004", "not a JSON object"},
        {[&] { says(200, std::string("{\"choices\":\"\xff\"}")); }, "502004", "UTF-8"},
        {[&] { says(200, std::string(R"({"choices":[{"text":"a"}]})")); }, "502004",
         "first choice"},
        {[&] { says(200, std::string(R"({"choices":[]})")); }, "502005", "empty"},
        {[&] { says(200, answers("null", "stop")); }, "502005", "empty"},
        {[&] { says(200, answers("\"\"", "length")); }, "502005", "maxTokens"},
        {[&] { says(200, answers('"' + std::string(20000, 'x') + '"', "stop")); }, "502006",
         "20000"},
        {[&] { says(200, answers("\"is forbidden\"", "stop")); }, "083001", "output",
         "\"checkOutput\""},
        {[&] { says(200, answers("\"is forbidden\"", "stop")); }, "0", "is forbidden"},
        {[&] { says(200, answers("\"to be conti\"", "length")); }, "0", "to be conti"},
        {[&] { fails(FaultKind::Reset), fails(FaultKind::Reset); }, "502007", "ended"},
        {[&] { fails(FaultKind::CutBody); }, "502007", "ended"},
        {[&] { fails(FaultKind::StallInBody); }, "504001", "--model-timeout"},
    };
    for (const auto& c : cases) {
        auto& gateway = c.code == "504001" ? hasty : patient;
        c.happens();
        const auto answer = Ask(gateway, "x", "say", c.tags.c_str());
        EXPECT_EQ(Member(answer, "errorCode"), c.code) << answer;
        EXPECT_TRUE(Contains(answer, c.part)) << answer;
        EXPECT_FALSE(Contains(answer, kKey) || Contains(answer, "LAP5")) << answer;
        const auto call = gateway.exchanges().changed.back().answer.value().model.value();
        EXPECT_LT(call.took, 30s) << "the limit is for the whole";
        EXPECT_EQ(call.stoppedByLength, Contains(c.part, "conti") || c.part == "maxTokens");
        EXPECT_EQ(Ask(gateway, "y"), Result("y")) << "after " << c.code << ' ' << c.part;
    }
    const auto shown = Send(patient.baseUrl() + "/control/watch?since=0", "", "", "", "GET").body;
    EXPECT_FALSE(Contains(shown, kKey)) << "the page gets the key";
}

TEST_P(ModelTest, ServesManyWithFewAtATimeAndNoneIsLost) {
    RunningGateway gateway(With());
    standIn_.addFault({"", FaultKind::Delay, 5});
    standIn_.GatherFirst(4);
    const auto token = gateway.Token();
    std::vector<std::future<std::string>> answers;
    for (std::size_t i = 0; i < 64; ++i)
        answers.push_back(std::async(std::launch::async, [&, i] {
            const auto body = QueryBody("say", R"("it":"number )" + std::to_string(i) + '"');
            return gateway.Post(kQuery, body, token).body;
        }));
    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_EQ(answers[i].get(), Result("number " + std::to_string(i)));
    EXPECT_EQ(standIn_.requests().size(), 64U);
    EXPECT_EQ(standIn_.MostAtOnce(), 4);
    EXPECT_EQ(standIn_.connections(), 4U);
}

TEST_P(ModelTest, EndsWhatNobodyWaitsForAndFindsAModelThatIsBack) {
    RunningGateway gateway(With(60s, 1));
    standIn_.addFault({"", FaultKind::Stall, 0, "", "", 1});
    auto first = std::async(std::launch::async, [&] { return Ask(gateway, "1", "say", "", 1500); });
    ASSERT_TRUE(gateway.waitUntil([&] { return standIn_.stalled() == 1; }));
    EXPECT_EQ(Ask(gateway, "2", "say", "", 200), "") << "there is one turn, and it is taken";
    EXPECT_EQ(first.get(), "");
    EXPECT_TRUE(gateway.waitUntil([&] { return standIn_.stalled() == 0; })) << "it is still asked";
    EXPECT_EQ(Ask(gateway, "3"), Result("3"));
    EXPECT_EQ(standIn_.requests().size(), 2U);
    std::size_t left = 0;
    for (const auto& exchange : gateway.exchanges().changed)
        if (Contains(exchange.answer.value().body, "499001")) ++left;
    EXPECT_EQ(left, 2U);

    standIn_.stop();
    EXPECT_TRUE(Contains(Ask(gateway, "4"), "502001"));
    if (GetParam()) return;  // a new one has a new authority
    const ModelStandIn again(false, standIn_.port());
    EXPECT_EQ(Ask(gateway, "5"), Result("5"));
}

TEST_P(ModelTest, RefusesWhatCannotBeUsed) {
    const struct {
        std::function<void(gateway::ModelOptions&)> change;
        const char* part;
    } cases[] = {
        {[](auto& model) { model.url = "ftp://h"; }, "must begin with http"},
        {[](auto& model) { model.url = "http://user:secret@h"; }, "has more than"},
        {[](auto& model) { model.url = "http://h:65536/v1"; }, "port"},
        {[](auto& model) { model.url = "https://[::1"; }, "]"},
        {[](auto& model) { model.url = "http:///v1"; }, "no host"},
        {[](auto& model) { model.key = "a\r\nX-Evil: b"; }, "line break"},
        {[](auto& model) { model.caFile = "/missing.pem"; }, "/missing.pem"},
        {[](auto& model) { model.name = "\xff"; }, "UTF-8"},
    };
    for (const auto& c : cases) {
        auto options = With();
        c.change(options.model);
        gateway::Gateway gateway(options);
        EXPECT_FALSE(gateway.start()) << c.part;
        EXPECT_TRUE(Contains(gateway.reason(), c.part)) << gateway.reason();
        EXPECT_FALSE(Contains(gateway.reason(), "secret")) << gateway.reason();
    }
    auto strangers = With();
    strangers.model.caFile.clear();
    RunningGateway gateway(strangers);
    EXPECT_EQ(Member(Ask(gateway, "x"), "errorCode"), GetParam() ? "502002" : "0");

    gateway::Turns turns(1);
    const auto now = std::chrono::steady_clock::now();
    const gateway::Turns::Turn one(turns, now, {});
    const gateway::Turns::Turn two(turns, now, {});
    EXPECT_TRUE(one && !two);
}

TEST(TemplatesTest, TellWhereTheyCannotBeTaken) {
    const std::pair<const char*, const char*> cases[] = {
        {"{\n\n\"templates\":[}", "line 3: not a JSON object"},
        {R"({"templates":[],"x":1})", R"("x": is not known)"},
        {R"({"templates":[{"key":"a","text":"b"},{"key":"c"}]})",
         R"(template 2 ("c"): lacks "text")"},
        {R"({"templates":[{"key":"a","text":"b","temprature":1}]})",
         R"(template 1 ("a"), "temprature")"},
        {R"({"templates":[{"key":"a","text":"b","maxTokens":1.5}]})",
         R"("maxTokens": is not a whole)"},
        {R"({"templates":[{"key":"a","text":"b","temperature":-1}]})", "from 0"},
        {R"({"templates":[{"key":"a","text":"b","system":null}]})", "not a text"},
    };
    for (const auto& [text, part] : cases) {
        std::string reason;
        EXPECT_FALSE(gateway::parseTemplates(text, reason)) << text;
        EXPECT_TRUE(Contains(reason, part)) << reason;
    }
}

}  // namespace

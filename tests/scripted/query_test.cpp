// Queries: bodies byte for byte, every row of the error table, the repeat after a renewal.

#include "scripted/login.h"

namespace {

using namespace scripted;
using Veltra::FilterType;

class QueryTest : public LoggedIn {
 protected:
    static std::shared_ptr<Veltra::CHumanMessage> Message(const std::string& id = "abc") {
        auto message = std::make_shared<Veltra::CHumanMessage>();
        message->SetElements("pk", {{"b", "2"}, {"a", "1"}});
        message->SetFilterType(FilterType::CheckInput);
        message->SetSessionID(id);
        return message;
    }

    /// Runs a query and returns "result|code|message", with the answer's text in `content`.
    std::string Run(const std::shared_ptr<Veltra::CHumanMessage>& message) {
        auto before = result;
        const bool answered = session->ExecuteQuery(message, result);
        EXPECT_TRUE(answered || result == before) << "a failure leaves the result alone";
        std::int32_t code = -1;
        std::string text;
        session->GetErrorInfo(code, text);
        return (answered ? "true|" : "false|") + std::to_string(code) + "|" + text;
    }

    std::shared_ptr<Veltra::CLLMSession> session =
        Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
    std::shared_ptr<Veltra::CLLMMessage> result;
};

constexpr const char* kBody =
    R"({"traceId":"abc","promptKey":"pk","replaceElements":{"a":"1","b":"2"},)"
    R"("sensitiveContentCfg":{"inputWords":["1","2"],"filterTags":[]}})";

TEST_F(QueryTest, RequestOnTheWire) {
    AnswerInOrder({Ok(ResultBody("hello"))});
    EXPECT_EQ(Run(Message()), "true|0|");
    EXPECT_EQ(result->GetContent(), "hello");
    EXPECT_EQ(WholeRequests(),
              Lines{std::string("POST https://llm.test") + kQueryPath +
                    "\ntype application/json\nAuthorization: Bearer bearer-1\n" + kBody});
    EXPECT_EQ(Records(), (Lines{std::string("2 AISession::ExecuteQuery|request:") + kBody,
                                std::string("3 AISession::ExecuteQuery|request:") + kBody +
                                    ",http client get response:" + ResultBody("hello")}));
}

TEST_F(QueryTest, BodyOfEachFilterType) {
    const auto cfg = [](const std::string& words, const std::string& tags) {
        return R"("sensitiveContentCfg":{"inputWords":[)" + words + R"(],"filterTags":[)" + tags +
               "]}}";
    };
    const std::string tag = R"("checkOutput")";
    const struct {
        int type;
        std::vector<std::string> content;
        std::string expected;
    } cases[] = {
        {1, {"x"}, cfg("", "")},
        {2, {}, cfg(R"("1","2")", "")},
        {2, {"x", "x", ""}, cfg(R"("x","x","")", "")},
        {3, {}, cfg(R"("1","2")", tag)},
        {3, {"x"}, cfg(R"("x")", tag)},
        {4, {"x"}, cfg(R"("x")", tag)},
        {5, {"x"}, cfg(R"("x")", "")},
        {-1, {}, cfg(R"("1","2")", "")},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.type);
        ForgetRequests();
        AnswerInOrder({Ok(ResultBody(""))});
        const auto message = Message();
        message->SetFilterType(static_cast<FilterType>(each.type));
        message->SetSensitiveContent(each.content);
        EXPECT_EQ(Run(message), "true|0|");
        EXPECT_EQ(result->GetContent(), "");
        const std::string request = Requests().at(0);
        EXPECT_EQ(request.substr(request.find(R"("sensitive)")), each.expected);
    }
}

TEST_F(QueryTest, FreshMessageAndUnescapedText) {
    AnswerInOrder({Ok("{}"), Ok("{}")});
    Run(std::make_shared<Veltra::CHumanMessage>());
    const std::string record = Records().at(0);
    const std::string prefix = "4 AISession::ExecuteQuery|sessionID isempty,set id is:";
    ASSERT_EQ(record.compare(0, prefix.size(), prefix), 0) << record;
    const std::string id = record.substr(prefix.size());
    EXPECT_EQ(id.size(), 36U);
    const std::string request = Requests().at(0);
    EXPECT_EQ(request.substr(request.find('{')),
              R"({"traceId":")" + id +
                  R"(","promptKey":"","replaceElements":{},)"
                  R"("sensitiveContentCfg":{"inputWords":[],"filterTags":[]}})");

    auto message = Message("\"");
    message->SetElements("p\\k", {{"n\"", "v\n\xc3\xa9"}});
    Run(message);
    const std::string raw = Requests().at(1);
    EXPECT_EQ(raw.substr(raw.find('{'), 60),
              "{\"traceId\":\"\"\",\"promptKey\":\"p\\k\",\"replaceElements\":{\"n\"\":\"v\n");
}

TEST_F(QueryTest, NothingIsSentWithout) {
    auto moved = Message();
    const Veltra::CHumanMessage taken(std::move(*moved));
    moved->SetSessionID("ignored");
    moved->SetElements("ignored", {});
    moved->SetFilterType(FilterType::CheckInput);
    moved->SetSensitiveContent({});
    const std::string unusable = "llm service is not can be used";
    const struct {
        std::function<void()> before;
        std::shared_ptr<Veltra::CHumanMessage> message;
        std::string expected, record;
    } cases[] = {
        {[] { Manager().SetLLMServiceValid(false); }, Message(), "3|" + unusable, unusable},
        // What was said of the query before is gone.
        {[] { Manager().SetLLMServiceValid(true); }, nullptr, "1|", "humanmessage ptr is nullptr"},
        {[] {}, moved, "1|", "humanmessage manager ptr is nullptr"},
        {[] { Manager().SetToken(""); }, Message(), "1|", "get token failed"},
        {[] { Veltra::Veltra_Disable(); }, Message(), "3|veltra is not enable",
         "veltra is not enable"},
    };
    for (const auto& each : cases) {
        each.before();
        ForgetRecords();
        EXPECT_EQ(Run(each.message), "false|" + each.expected);
        EXPECT_EQ(Records(), Lines{"5 AISession::ExecuteQuery|" + each.record});
    }
    EXPECT_EQ(Requests(), Lines{});
}

TEST_F(QueryTest, HandlesShareTheirRecord) {
    const Veltra::CHumanMessage first;
    const Veltra::CHumanMessage copy(first);
    EXPECT_EQ(copy.GetPtrManager(), first.GetPtrManager());
    Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    EXPECT_NE(helper.GetLLMSessionItem({}), helper.GetLLMSessionItem({}));
    const Veltra::CAiHelper other(std::move(helper));
    EXPECT_EQ(helper.GetLLMSessionItem({}), nullptr);  // NOLINT(bugprone-use-after-move)
}

TEST_F(QueryTest, SensitiveValueIsNeverSent) {
    Veltra::Veltra_SetsitiveWords({Veltra::PhraseKey("bad word")}, 2);
    const auto message = Message("");
    message->SetElements("bad word", {{"bad word", "fine"}});
    AnswerInOrder({Ok(ResultBody("y"))});
    EXPECT_EQ(Run(message), "true|0|");  // keys and the prompt key are not screened

    ForgetRecords();
    ForgetRequests();
    message->SetFilterType(FilterType::None);
    message->SetElements("pk", {{"a", "fine"}, {"b", "a bad word."}});
    EXPECT_EQ(Run(message), "false|4|has sensitive words");
    EXPECT_EQ(Records(), Lines{"5 AISession::ExecuteQuery|has sensitive words"});
    EXPECT_EQ(Requests(), Lines{});
}

TEST_F(QueryTest, WhatIsScreenedIsWhatIsSent) {
    const auto message = Message("");
    ReactToRecords([&](const std::string& record) {
        if (record.find("sessionID isempty") != record.npos) message->SetElements("other", {});
    });
    AnswerInOrder({Ok(ResultBody("y"))});
    EXPECT_EQ(Run(message), "true|0|");
    EXPECT_NE(Requests().at(0).find(R"("promptKey":"pk","replaceElements":{"a":"1")"),
              std::string::npos);
}

TEST_F(QueryTest, RejectedTokenIsRenewedAndTheQueryRepeated) {
    const Answer rejected = Ok(RefusalBody("1", "LAP500004 and CCF083001"));
    const Answer probe = Ok("x");
    const auto token = [](const char* text) { return Ok(TokenBody(text)); };
    const struct {
        const char* name;
        std::vector<Answer> answers;
        std::string expected;
    } cases[] = {
        {"answered", {rejected, probe, token("bearer-2"), Ok(ResultBody("y"))}, "true|0|"},
        {"refused", {rejected, probe, token("bearer-3"), Ok(RefusalBody("9", "no"))}, "false|1|no"},
        {"not JSON",
         {rejected, probe, token("bearer-4"), Ok("<>")},
         "false|1|LAP500004 and CCF083001"},
        {"lost", {rejected, probe, token("bearer-5")}, "false|2|client send message failed"},
        {"empty", {rejected, probe, token("bearer-6"), Ok("")}, "false|6|response is empty"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Manager().SetLLMServiceValid(true);
        ForgetRequests();
        AnswerInOrder(each.answers);
        EXPECT_EQ(Run(Message()), each.expected);
        EXPECT_EQ(TokenRequests(), 1U);
        const Lines requests = Requests();
        ASSERT_GE(requests.size(), 4U);
        EXPECT_EQ(requests[0], requests.back()) << "the same body again, however often";
    }
    EXPECT_EQ(Manager().GetToken(), "bearer-6");
}

}  // namespace

// The interface for C over real sockets: what comes back from each function, with everything given,
// with null for each pointer, and without memory.

#include "e2e/e2e_support.h"
#include "support/allocations.h"

#include <Veltra/veltra_c.h>
#include <qlog/qlog.h>

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using TestSupport::allocationsLeft;
using Call = std::unique_ptr<veltra_call, decltype(&veltra_call_free)>;
using Query = std::unique_ptr<veltra_query, decltype(&veltra_query_free)>;
using Feedback = std::unique_ptr<veltra_feedback, decltype(&veltra_feedback_free)>;

constexpr veltra_key_pair kGood = {"good", "secret"};

/// What a function handed over, freed.
std::string Taken(char* text) {
    std::string copy = text;
    veltra_free(text);
    return copy;
}

class CInterfaceTest : public testing::Test {
 protected:
    ~CInterfaceTest() override {
        veltra_cancel_all();
        veltra_disable();
        veltra_logout();
        veltra_set_http_options(nullptr);
        veltra_set_phrases(nullptr, 0);
        qlog_set_handler(nullptr, nullptr, 4);
    }

    void SetUp() override {
        ASSERT_TRUE(server.start()) << server.reason();
        ca = std::make_unique<e2e::TemporaryFile>(server.caPem());
        veltra_http_options options{};
        options.size = sizeof options;
        options.ca_file = ca->Path().c_str();
        ASSERT_EQ(veltra_set_http_options(&options), VELTRA_SUCCEEDED);
        qlog_set_handler([](int, const char*, const char*, void*) {}, nullptr, 4);
        veltra_enable();
        ASSERT_EQ(veltra_set_domain(server.baseUrl().c_str(), call.get()), VELTRA_SUCCEEDED);
    }

    void LogIn() {
        ASSERT_EQ(veltra_login(&kGood, 1, "1.2", call.get()), VELTRA_SUCCEEDED);
        veltra_stop_monitor();
    }
    std::string Ask() {
        const Query query(veltra_query_new("greeting"), veltra_query_free);
        veltra_query_set_value(query.get(), "name", "World");
        veltra_query_set_value(query.get(), "place", "h\tere");
        char* answer = nullptr;
        const auto outcome = veltra_query_run(query.get(), &answer, nullptr, call.get());
        return outcome == VELTRA_SUCCEEDED ? Taken(answer) : veltra_outcome_name(outcome);
    }

    gateway::Gateway server{e2e::Serve(true)};
    std::unique_ptr<e2e::TemporaryFile> ca;
    Call call{veltra_call_new(), veltra_call_free};
};

/// What the functions do besides: see the tests of the bindings.
TEST_F(CInterfaceTest, ThreadsShareAQuery) {
    LogIn();
    const Query query(veltra_query_new("greeting"), veltra_query_free);
    for (const char* const name : {"name", "place"})
        veltra_query_set_value(query.get(), name, "x");
    std::vector<std::jthread> crew;
    for (int i = 0; i < 4; ++i)
        crew.emplace_back([&query] {
            char* own = nullptr;
            ASSERT_EQ(veltra_query_run(query.get(), &own, nullptr, nullptr), VELTRA_SUCCEEDED);
            EXPECT_EQ(Taken(own), "Hello x, welcome to x.");
        });
    crew.clear();
    EXPECT_EQ(veltra_is_enabled(), 1);
    veltra_logout();
    char* answer = nullptr;
    EXPECT_EQ(veltra_query_run(query.get(), &answer, nullptr, call.get()), VELTRA_NOT_USABLE);
    EXPECT_EQ(veltra_call_retryable(call.get()), 1);
}

TEST_F(CInterfaceTest, ACallIsSteeredByItsControl) {
    LogIn();
    server.addFault({"", gateway::FaultKind::Stall});
    std::string other;
    std::thread caller([&] { other = Ask(); });
    ASSERT_TRUE(server.waitUntil([&] { return server.stalled() == 1; }));
    // In use: refused, and the report of the one under way stays.
    EXPECT_EQ(veltra_probe("https://127.0.0.1:1", call.get()), VELTRA_BAD_ARGUMENT);
    veltra_call_cancel(call.get());
    caller.join();
    EXPECT_EQ(other, "Cancelled");
    server.clearFaults();
    EXPECT_EQ(Ask(), "Cancelled");
    veltra_call_reset(call.get());
    EXPECT_EQ(Ask(), "Hello World, welcome to h\tere.");
}

TEST(CInterface, FunctionsWithoutAGatewayJudgeWhatTheyAreGiven) {
    veltra_http_options options{};
    EXPECT_EQ(veltra_set_http_options(&options), VELTRA_BAD_ARGUMENT);
    options.size = sizeof options.size;  // a host that knows nothing else
    options.proxy = reinterpret_cast<const char*>(1);
    EXPECT_EQ(veltra_set_http_options(&options), VELTRA_SUCCEEDED);

    std::array<char, 20> time{"untouched"};
    EXPECT_EQ(veltra_convert_time("-1x", 1710000000, 1, time.data()), VELTRA_BAD_ARGUMENT);
    EXPECT_STREQ(time.data(), "untouched");

    EXPECT_STREQ(veltra_outcome_name(-1), "Failed");
}

TEST(CInterface, NullIsAnOutcome) {
    const Call call(veltra_call_new(), veltra_call_free);
    const Query query(veltra_query_new("k"), veltra_query_free);
    const Feedback feedback(veltra_feedback_new("t"), veltra_feedback_free);
    const veltra_key_pair noSecret = {"k", nullptr};
    const char* const noPhrase = nullptr;
    char* text = nullptr;
    std::array<char, 20> time{};
    const std::vector<std::pair<int, veltra_outcome>> outcomes = {
        {__LINE__, veltra_set_domain(nullptr, call.get())},
        {__LINE__, veltra_probe(nullptr, nullptr)},
        {__LINE__, veltra_login(nullptr, 1, "", call.get())},
        {__LINE__, veltra_login(&noSecret, 1, "", nullptr)},
        {__LINE__, veltra_login(nullptr, 0, nullptr, nullptr)},
        {__LINE__, veltra_set_phrases(nullptr, 1)},
        {__LINE__, veltra_set_phrases(&noPhrase, 1)},
        {__LINE__, veltra_set_phrase_keys(nullptr, 1, 1)},
        {__LINE__, veltra_query_set_value(nullptr, "n", "v")},
        {__LINE__, veltra_query_set_value(query.get(), nullptr, "v")},
        {__LINE__, veltra_query_set_value(query.get(), "n", nullptr)},
        {__LINE__, veltra_query_set_filter(nullptr, 1)},
        {__LINE__, veltra_query_set_filter(query.get(), 0)},
        {__LINE__, veltra_query_set_filter(query.get(), 5)},
        {__LINE__, veltra_query_add_sensitive(nullptr, "s")},
        {__LINE__, veltra_query_add_sensitive(query.get(), nullptr)},
        {__LINE__, veltra_query_set_trace_id(nullptr, "t")},
        {__LINE__, veltra_query_set_trace_id(query.get(), nullptr)},
        {__LINE__, veltra_query_run(nullptr, &text, nullptr, call.get())},
        {__LINE__, veltra_query_run(query.get(), nullptr, nullptr, nullptr)},
        {__LINE__, veltra_feedback_set_satisfaction(nullptr, 1)},
        {__LINE__, veltra_feedback_set_error_type(nullptr, 1)},
        {__LINE__, veltra_feedback_set_comments(nullptr, "c")},
        {__LINE__, veltra_feedback_set_comments(feedback.get(), nullptr)},
        {__LINE__, veltra_feedback_set_country(nullptr, "c")},
        {__LINE__, veltra_feedback_set_country(feedback.get(), nullptr)},
        {__LINE__, veltra_feedback_add_picture(nullptr, "p", 1)},
        {__LINE__, veltra_feedback_add_picture(feedback.get(), nullptr, 1)},
        {__LINE__, veltra_feedback_add_picture(feedback.get(), "p", 0)},
        {__LINE__, veltra_feedback_submit(nullptr, &text, nullptr)},
        {__LINE__, veltra_feedback_submit(feedback.get(), nullptr, call.get())},
        {__LINE__, veltra_feedback_withdraw(nullptr, call.get())},
        {__LINE__, veltra_convert_time(nullptr, 0, 0, time.data())},
        {__LINE__, veltra_convert_time("-1d", 0, 0, nullptr)}};
    for (const auto& [line, outcome] : outcomes)
        EXPECT_EQ(outcome, VELTRA_BAD_ARGUMENT) << "line " << line;
    EXPECT_EQ(text, nullptr);
    EXPECT_STREQ(veltra_call_detail(call.get()), "an argument is null");

    EXPECT_TRUE(veltra_query_new(nullptr) == nullptr && veltra_feedback_new(nullptr) == nullptr);
    EXPECT_EQ(veltra_phrase_key(nullptr), 0U);
    EXPECT_EQ(veltra_call_attempts(nullptr) + veltra_call_http_status(nullptr), 0);
    EXPECT_EQ(veltra_call_retryable(nullptr), 0);
    EXPECT_EQ(veltra_call_milliseconds(nullptr), 0U);
    for (const auto tell : {veltra_call_gateway_code, veltra_call_gateway_message,
                            veltra_call_detail, veltra_call_trace_id})
        EXPECT_STREQ(tell(nullptr), "");
    veltra_call_set_time_limit(nullptr, 1);
    veltra_call_cancel(nullptr);
    veltra_call_reset(nullptr);
    veltra_call_free(nullptr);
    veltra_query_free(nullptr);
    veltra_feedback_free(nullptr);
    veltra_free(nullptr);
}

/// Texts are longer than a string holds without an allocation.
TEST_F(CInterfaceTest, WithoutMemoryAFunctionFailsAndTheNextOneWorks) {
    LogIn();
    const Query query(veltra_query_new("greeting"), veltra_query_free);
    for (const char* const name : {"name", "place"})
        veltra_query_set_value(query.get(), name, "World");
    const Feedback feedback(veltra_feedback_new("the trace id of a query"), veltra_feedback_free);
    const std::string text(40, 'x');
    const char* const phrase = text.c_str();
    const std::uint64_t key = 1;
    const std::string domain = server.baseUrl();
    veltra_http_options options{};
    options.size = sizeof options;
    options.ca_file = ca->Path().c_str();
    std::array<char, 20> time{};

    const auto isMade = [](auto* object, auto free) {
        free(object);
        return object != nullptr ? VELTRA_SUCCEEDED : VELTRA_FAILED;
    };
    const auto handsOver = [](const auto& work) {
        char* given = nullptr;
        const veltra_outcome outcome = work(&given);
        EXPECT_EQ(given != nullptr, outcome == VELTRA_SUCCEEDED);
        veltra_free(given);
        return outcome;
    };
    const std::vector<std::pair<const char*, std::function<veltra_outcome()>>> functions = {
        {"call_new", [&] { return isMade(veltra_call_new(), veltra_call_free); }},
        {"query_new", [&] { return isMade(veltra_query_new(phrase), veltra_query_free); }},
        {"feedback_new", [&] { return isMade(veltra_feedback_new(phrase), veltra_feedback_free); }},
        {"set_value", [&] { return veltra_query_set_value(query.get(), "name", phrase); }},
        {"add_sensitive", [&] { return veltra_query_add_sensitive(query.get(), phrase); }},
        {"set_trace_id", [&] { return veltra_query_set_trace_id(query.get(), phrase); }},
        {"comments", [&] { return veltra_feedback_set_comments(feedback.get(), phrase); }},
        {"country", [&] { return veltra_feedback_set_country(feedback.get(), phrase); }},
        {"picture", [&] { return veltra_feedback_add_picture(feedback.get(), phrase, 40); }},
        {"options", [&] { return veltra_set_http_options(&options); }},
        {"phrases", [&] { return veltra_set_phrases(&phrase, 1); }},
        {"keys", [&] { return veltra_set_phrase_keys(&key, 1, 1); }},
        {"time", [&] { return veltra_convert_time("-1d08:30", 1710000000, 1, time.data()); }},
        {"domain", [&] { return veltra_set_domain(domain.c_str(), call.get()); }},
        {"probe", [&] { return veltra_probe(domain.c_str(), nullptr); }},
        {"login",
         [&] {
             const long left = std::exchange(allocationsLeft, -1);
             veltra_logout();  // each login adds its pairs, and takes more memory than the last
             allocationsLeft = left;
             return veltra_login(&kGood, 1, "1.2", call.get());
         }},
        {"run",
         [&] {
             return handsOver([&](char** answer) {
                 return veltra_query_run(query.get(), answer, nullptr, call.get());
             });
         }},
        {"submit",
         [&] {
             return handsOver(
                 [&](char** id) { return veltra_feedback_submit(feedback.get(), id, call.get()); });
         }},
        {"withdraw", [&] {
             const auto outcome = veltra_feedback_withdraw(phrase, call.get());
             return outcome == VELTRA_REFUSED ? VELTRA_SUCCEEDED : outcome;  // as it must be
         }}};
    testing::internal::CaptureStdout();
    for (const auto& [name, function] : functions) {
        bool neededAll = true;
        for (long at = 0; neededAll; ++at) {
            allocationsLeft = at;
            const veltra_outcome outcome = function();
            neededAll = allocationsLeft == 0;
            allocationsLeft = -1;
            EXPECT_GE(outcome, VELTRA_SUCCEEDED) << name << at;
        }
        EXPECT_EQ(function(), VELTRA_SUCCEEDED) << name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "the echo of bodies is off";
    veltra_stop_monitor();
}

}  // namespace

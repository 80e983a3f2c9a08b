// Feedback: bodies byte for byte, what reaches the storage, every failure with its records, and how
// much memory pictures take.

#include "Base64.h"
#include "Log.h"
#include "scripted/login.h"
#include "support/allocations.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace scripted;
using TestSupport::liveBytes;
using Pictures = std::unordered_set<std::string>;
using Comment = std::shared_ptr<Veltra::LLMComment>;

const std::string kFeedbackUrl = "https://llm.test/api/tmqgw/aillm/v1/satisfaction/feedback";
const std::string kSlotUrl = kFeedbackUrl + "/upload/image";
const std::string kCancelUrl = kFeedbackUrl + "/cancel";

std::string Encoded(const std::string& bytes) {
    return Veltra::EncodeBase64(bytes.data(), bytes.size());
}

std::string Decoded(const std::string& text) {
    const auto bytes = Veltra::base64_decode(text);
    return {bytes.begin(), bytes.end()};
}

/// A POST as the scripted platform shows it.
std::string Post(const std::string& url, const std::string& body) {
    return std::string("POST ").append(url).append(" ").append(body);
}

/// Slots with the image keys k1, k2, ... and these URLs.
std::string SlotsBody(const Lines& urls) {
    std::string list;
    for (std::size_t i = 0; i < urls.size(); ++i) {
        list += (i == 0 ? "" : ",") + (R"({"imageKey":"k)" + std::to_string(i + 1)) +
                R"(","url":")" + urls[i] + R"("})";
    }
    return R"({"errorCode":"0","data":{"imageList":[{"uploadInfoList":[)" + list + "]}]}}";
}

std::string AcceptedBody(const std::string& id) {
    return R"({"errorCode":"0","data":{"feedbackId":")" + id + R"("}})";
}

std::string FeedbackBody(const std::string& traceId, const std::string& keys = "") {
    return R"({"traceId":")" + traceId +
           R"(","satisfactionType":0,"feedbackType":0,"feedbackDescription":"",)"
           R"("country":"unKnown","clientVersion":"un_known","feedbackImageKeys":[)" +
           keys + "]}";
}

Comment WithPictures(std::size_t count) {
    Pictures pictures;
    for (std::size_t i = 0; i < count; ++i)
        pictures.insert(Encoded("picture " + std::to_string(i)));
    auto comment = std::make_shared<Veltra::LLMComment>("t");
    EXPECT_TRUE(comment->SetPictures(pictures));
    return comment;
}

class FeedbackTest : public LoggedIn {
 protected:
    /// Submits; returns the feedback id, or "failed".
    std::string Submit(const Comment& comment) {
        std::string id = "as before";
        testing::internal::CaptureStdout();
        const bool accepted = Veltra::Veltra_SubmitComments(comment, id);
        output = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(accepted || id == "as before") << id;
        return accepted ? id : "failed";
    }

    std::string output;
};

TEST(OperationName, FromEachCompilersSignature) {
    const auto expectName = [](const auto& signature, const char* name) {
        EXPECT_STREQ(Veltra::detail::QualifiedName(signature).text, name) << signature;
    };
    expectName("static std::vector<std::pair<A, B (*)()> > Veltra::A::f(const C<D>&)",
               "Veltra::A::f");
    expectName("std::string &__cdecl Veltra::A::f(int (__cdecl *)(int))", "Veltra::A::f");
    const char* const local = "Veltra::A::f::S";
    expectName("bool Veltra::A::f(int (*)(int)) const::S::operator()(int) const", local);
    expectName("bool Veltra::A::f(B<int> &)::S::operator()(std::string &&) const", local);
    expectName("bool __cdecl Veltra::A::f::S::operator ()(int) const", local);
}

TEST_F(FeedbackTest, TextsGoOutAsTheyAre) {
    using std::string_literals::operator""s;
    AnswerBy([](const Request&) { return Ok(AcceptedBody("")); });
    const auto comment = std::make_shared<Veltra::LLMComment>("t\"\\"s);
    Veltra::LLMComment copy(*comment);
    EXPECT_TRUE(copy.SetComments("a\"b\0\n\xff"s));
    EXPECT_TRUE(copy.SetCountry("{]"));
    EXPECT_TRUE(copy.SetSatisfactionLevel(Veltra::SatisfactionLevel(INT32_MIN)));
    EXPECT_TRUE(copy.SetLLMErrType(Veltra::LLMErrType(INT32_MAX)));
    Manager().SetProductVersion("5\t1");
    const std::string body =
        "{\"traceId\":\"t\"\\\",\"satisfactionType\":-2147483648,\"feedbackType\":2147483647,"
        "\"feedbackDescription\":\"a\"b\0\n\xff\",\"country\":\"{]\",\"clientVersion\":\"5\t1\","
        "\"feedbackImageKeys\":[]}"s;
    EXPECT_EQ(Submit(comment), "") << "an empty id is the gateway's to give";
    EXPECT_EQ(WholeRequests(),
              Lines{"POST " + kFeedbackUrl +
                    "\ntype application/json\nAuthorization: Bearer bearer-1\n" + body});
    EXPECT_EQ(output, body + "\n");
    EXPECT_EQ(Records(), Lines{});

    EXPECT_TRUE(Veltra::Veltra_CancleComments("f\"1"));
    EXPECT_TRUE(Veltra::Veltra_CancleComments("")) << "the gateway's to judge";
    EXPECT_EQ(Requests()[1], Post(kCancelUrl, "{\"feedbackId\":\"f\"1\"}"));
    EXPECT_EQ(Requests()[2], Post(kCancelUrl, "{\"feedbackId\":\"\"}"));
}

/// Which answers fail a slot request or a push: see the fault matrix.
TEST_F(FeedbackTest, PicturesGoToTheSlotsInOrder) {
    const Lines five = {"https://s/1?x=%20&y", "https://s/2", "https://s/3", "https://s/4", "s5"};
    const Answer stored = Ok("");
    const struct {
        std::size_t pictures, slots;
        std::vector<Answer> pushes;  // the answer to each push that is expected
        std::string keys;
    } cases[] = {{6, 4, {stored, stored, stored, stored}, R"("k1","k2","k3","k4")"},
                 {2, 5, {stored, stored}, R"("k1","k2")"},
                 {5, 3, {Lost(), Status(201), stored}, R"("k3")"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.pictures);
        const Lines slots(five.begin(), five.begin() + static_cast<std::ptrdiff_t>(each.slots));
        const std::string slotBody = R"({"traceId":"t","uploadImageList":[{"generateNum":)" +
                                     std::to_string(std::min<std::size_t>(each.pictures, 4)) +
                                     R"(,"imageType":"jpg"}]})";
        const std::string body = FeedbackBody("t", each.keys);
        std::vector<Answer> answers = each.pushes;
        answers.insert(answers.begin(), Ok(SlotsBody(slots)));
        answers.push_back(Ok(AcceptedBody("f")));
        std::set<std::string> pushed;
        std::size_t next = 0;
        Lines requests;
        AnswerBy([&](const Request& request) {
            const bool push = request.Method() == "PUT";
            if (push) pushed.insert(request.Data());
            requests.push_back(request.Url().Text() + ' ' + (push ? "" : request.Data()));
            return next < answers.size() ? answers[next++] : Lost();
        });
        ForgetRecords();
        EXPECT_EQ(Submit(WithPictures(each.pictures)), "f");
        Lines expected = {kSlotUrl + ' ' + slotBody};
        for (std::size_t i = 0; i < each.pushes.size(); ++i)
            expected.push_back(slots[i] + ' ');
        expected.push_back(kFeedbackUrl + ' ' + body);
        EXPECT_EQ(requests, expected);
        EXPECT_EQ(output, slotBody + "\n" + body + "\n");
        EXPECT_EQ(pushed.size(), each.pushes.size()) << "each picture goes out once";
    }
    // Those of the last case, whose first push is lost, and whose second is refused.
    const std::string uploads = "UserComentManager::UpLoadPics";
    EXPECT_EQ(Records(),
              (Lines{"5 " + uploads + "::PushPicToS3|Send to S3 failed",
                     "3 " + uploads + "::PushPicToS3|Send to S3 success ",
                     "2 " + uploads + "|push pic to s3 suc,the key is k3,the url is https://s/3",
                     "3 " + uploads + "|push 5 pic to s3"}));
}

/// What has a model's answer or a picture in it may take as long as the host allows.
TEST_F(FeedbackTest, OtherExchangesHaveALimitOfTheirOwn) {
    std::map<std::string, std::int64_t> limits;
    AnswerBy([&](const Request& request) {
        limits[request.Url().Text()] = request.Patience().limit.count();
        if (request.Url().Text() == kSlotUrl) return Ok(SlotsBody({"https://storage/k"}));
        return Ok(IsTokenRequest(request) ? TokenBody("bearer-1") : ResultBody("x"));
    });
    EXPECT_TRUE(Veltra::Veltra_SetDomain("https://probed"));
    EXPECT_TRUE(Manager().renewAuthenticationToken({}, true));
    std::shared_ptr<Veltra::CLLMMessage> answer;
    Veltra::CAiHelper({}, "").GetLLMSessionItem({})->ExecuteQuery(
        std::make_shared<Veltra::CHumanMessage>(), answer);
    EXPECT_NE(Submit(WithPictures(1)), "failed");
    EXPECT_TRUE(Veltra::Veltra_CancleComments("f-1"));
    const std::map<std::string, std::int64_t> expected = {
        {std::string("https://probed") + kQueryPath, 15000},
        {std::string("https://probed") + kTokenPath, 15000},
        {std::string("https://llm.test") + kQueryPath, 0},
        {kSlotUrl, 15000},
        {"https://storage/k", 0},
        {kFeedbackUrl, 15000},
        {kCancelUrl, 15000}};
    EXPECT_EQ(limits, expected);
}

TEST_F(FeedbackTest, StorageGetsThePictureAlone) {
    const std::string url = "https://llm.test/the/gateways/own/host";
    AnswerBy([&](const Request& request) {
        return Ok(request.Url().Text() == kSlotUrl ? SlotsBody({url}) : AcceptedBody("f"));
    });
    const auto comment = std::make_shared<Veltra::LLMComment>("t");
    const std::string picture("\xff\xd8\0\r\n", 5);
    // One of no bytes is pushed all the same.
    for (const auto& [text, bytes] :
         {std::pair{Encoded(picture), picture}, {"no base64", std::string()}}) {
        ForgetRequests();
        comment->SetPictures({text});
        EXPECT_EQ(Submit(comment), "f");
        ASSERT_EQ(Requests().size(), 3U);
        EXPECT_EQ(WholeRequests()[1], "PUT " + url + "\ntype \n" + bytes);
        EXPECT_EQ(Requests()[2], Post(kFeedbackUrl, FeedbackBody("t", R"("k1")")));
    }
}

/// Any text: see the fuzzer.
TEST_F(FeedbackTest, Base64) {
    EXPECT_EQ(Decoded("QUJDRA") + Decoded("QUJD\nREVG"), "ABC") << "right until it goes wrong";
    EXPECT_EQ(Records(), Lines{});
    EXPECT_EQ(Decoded(""), "");
    EXPECT_EQ(Records(), Lines{"4 base64_decode|Empty input string for base64 decode"});
}

TEST_F(FeedbackTest, Base64LongerThanAnInt) {
    if (std::getenv("VELTRA_LONG_TESTS") == nullptr) {
        GTEST_SKIP() << "needs 2 GiB and a while: scripts/check --long";
    }
    const std::string text(std::size_t{INT_MAX} + 1, 'A');
    EXPECT_EQ(Decoded(text), "");
    EXPECT_EQ(Records(), Lines{"5 base64_decode|Failed to create memory BIO"});
}

std::atomic<int> allocationsUntilFailure{INT_MAX};

void* FailOnCue(void* old, std::size_t size) {
    return --allocationsUntilFailure == 0 ? nullptr : std::realloc(old, size);
}

TEST(Base64, DecoderThatCannotBeMade) {
    // Before anything else in this process uses the library of the decoder.
    ASSERT_EQ(
        CRYPTO_set_mem_functions(
            [](std::size_t size, const char*, int) { return FailOnCue(nullptr, size); },
            [](void* old, std::size_t size, const char*, int) { return FailOnCue(old, size); },
            [](void* block, const char*, int) { std::free(block); }),
        1);
    EXPECT_EQ(Decoded("QUJD"), "ABC");  // what is set up only once is not to fail
    StartRecording();
    std::set<Lines> outcomes;
    for (int failing = 1; failing < 50; ++failing) {
        ForgetRecords();
        allocationsUntilFailure = failing;
        const std::string bytes = Decoded("QUJD");
        allocationsUntilFailure = INT_MAX;
        EXPECT_EQ(bytes, Records().empty() ? "ABC" : "") << failing;
        outcomes.insert(Records());
    }
    EXPECT_EQ(outcomes, (std::set<Lines>{{},
                                         {"5 base64_decode|Failed to create base64 BIO"},
                                         {"5 base64_decode|Failed to create memory BIO"}}));
}

TEST_F(FeedbackTest, GuardsSendAndShowNothing) {
    const Comment comment = WithPictures(0);
    const auto refused = [&](const Comment& given) {
        return Submit(given) == "failed" && output.empty();
    };
    const auto cancelRefused = [] { return !Veltra::Veltra_CancleComments("f"); };
    auto moved = std::make_shared<Veltra::LLMComment>("t");
    const Veltra::LLMComment taken(std::move(*moved));
    EXPECT_FALSE(moved->SetSatisfactionLevel({}) || moved->SetLLMErrType({}) ||
                 moved->SetComments("") || moved->SetPictures({}) || moved->SetCountry(""));
    EXPECT_NE(taken.GetManagerPtr(), nullptr);
    const auto usable = [](bool valid) { Manager().SetLLMServiceValid(valid); };
    const std::string load = "5 UserComentManager::UpLoadComments|";
    const std::string send = "5 UserComentManager::SendToCloud|get token failed";
    const std::string submit = "5 Veltra_SubmitComments|";
    const std::string cancel = "5 Veltra_CancleComments|";
    const std::string unusable = "llm service is not can be used";
    const std::string disabled = "veltra is not enable";
    EXPECT_TRUE(refused(moved));
    EXPECT_TRUE(refused(nullptr));
    Manager().SetToken("");
    EXPECT_TRUE(refused(comment)) << "no body is shown that is not sent";
    EXPECT_EQ(Submit(WithPictures(1)), "failed");
    EXPECT_TRUE(cancelRefused());
    usable(false);
    EXPECT_TRUE(refused(nullptr)) << "the pointer is looked at first";
    EXPECT_TRUE(refused(comment) && cancelRefused());
    Veltra::Veltra_Disable();
    EXPECT_TRUE(refused(nullptr)) << "the switch is looked at first";
    EXPECT_TRUE(cancelRefused());
    EXPECT_EQ(
        Records(),
        (Lines{load + "humanmessage manager ptr is nullptr", submit + "comment ptr is nullptr",
               load + "get token failed", send, load + "Upload pic to S3 failed!", send,
               submit + "comment ptr is nullptr", submit + unusable, cancel + unusable,
               "3 CAIManager::Disable|veltra disable.", submit + disabled, cancel + disabled}));
    EXPECT_EQ(Requests(), Lines{});
}

TEST_F(FeedbackTest, SubmissionUsesTheRecordOfItsStart) {
    const Comment comment = WithPictures(1);
    AnswerBy([&](const Request& request) {
        if (request.Method() == "PUT") return Ok("");
        const bool asksForSlots = request.Url().Text() == kSlotUrl;
        if (asksForSlots) {
            comment->SetCountry("changed");
            comment->SetPictures({});
        }
        return Ok(asksForSlots ? SlotsBody({"u"}) : AcceptedBody("f"));
    });
    EXPECT_EQ(Submit(comment), "f");
    EXPECT_EQ(Requests().back(), Post(kFeedbackUrl, FeedbackBody("t", R"("k1")")));

    ForgetRequests();
    EXPECT_EQ(Submit(comment), "f") << "a record may be submitted again";
    std::string body = FeedbackBody("t");
    body.replace(body.find("unKnown"), 7, "changed");
    EXPECT_EQ(Requests(), Lines{Post(kFeedbackUrl, body)});
}

TEST_F(FeedbackTest, OneDecodedPictureIsHeldAtATime) {
    constexpr std::size_t kPicture = 10U << 20;
    constexpr std::size_t kSlack = 64U << 10;
    Pictures pictures;
    for (const char filling : {'a', 'b', 'c', 'd', 'e'})
        pictures.insert(Encoded(std::string(kPicture, filling)));
    const auto comment = std::make_shared<Veltra::LLMComment>("t");
    comment->SetPictures(pictures);
    const std::size_t copyOfRecord = pictures.size() * (kPicture / 3 * 4 + 4);

    const std::size_t before = liveBytes;
    std::size_t pushes = 0;
    AnswerBy([&](const Request& request) {
        ForgetRequests();  // they hold the bytes, too
        if (request.Method() == "PUT") {
            ++pushes;
            EXPECT_LE(liveBytes - before, copyOfRecord + kPicture + kSlack);
            return Ok("");
        }
        return Ok(request.Url().Text() == kSlotUrl ? SlotsBody({"1", "2", "3", "4"})
                                                   : AcceptedBody("f"));
    });
    std::string id;
    EXPECT_TRUE(Veltra::Veltra_SubmitComments(comment, id));
    EXPECT_EQ(pushes, 4U);
    ForgetRequests();
    EXPECT_LE(liveBytes, before + kSlack);
}

TEST_F(FeedbackTest, NoShownLineOfManyThreadsIsTorn) {
    AnswerBy([](const Request&) { return Ok(AcceptedBody("f")); });
    testing::internal::CaptureStdout();
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([comment = WithPictures(0)] {
            std::string id;
            for (int round = 0; round < 100; ++round)
                Veltra::Veltra_SubmitComments(comment, id);
        });
    }
    threads.clear();
    std::istringstream out(testing::internal::GetCapturedStdout());
    int lines = 0;
    for (std::string line; std::getline(out, line); ++lines)
        EXPECT_EQ(line, FeedbackBody("t"));
    EXPECT_EQ(lines, 8 * 100);
}

}  // namespace

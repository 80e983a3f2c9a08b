#include "demo_steps.h"

#include "json_read.h"
#include "output.h"
#include "phrases.h"
#include "run_query.h"
#include "sha256_openssl.h"
#include "submit_feedback.h"
#include "trace_id.h"

#include <Veltra/Veltra.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <set>
#include <stdexcept>
#include <unordered_set>
#include <utility>

namespace tool {

namespace {

constexpr std::string_view kTokenPath = "/api/tmqgw/v1/token/get";
constexpr std::string_view kQueryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";
constexpr std::string_view kFeedbackPath = "/api/tmqgw/aillm/v1/satisfaction/feedback";
constexpr std::string_view kCancelPath = "/api/tmqgw/aillm/v1/satisfaction/feedback/cancel";
constexpr std::int32_t kNotUsable = 3;
constexpr std::int32_t kSensitive = 4;
constexpr std::int32_t kRefused = 6;
constexpr const char* kRetiredApp = "retired-app";

/// A step went otherwise than it should.
struct Deviation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void expect(bool held, const std::string& otherwise) {
    if (!held) throw Deviation(otherwise);
}

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

std::string describe(const Failure& refusal) {
    return "code " + std::to_string(refusal.code) + ", " + inQuotes(refusal.what());
}

std::shared_ptr<Veltra::CHumanMessage> makeMessage(
    const std::string& promptKey, const std::map<std::string, std::string>& elements) {
    auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements(promptKey, elements);
    return message;
}

std::string refusalOf(const std::shared_ptr<Veltra::CHumanMessage>& message, std::int32_t code) {
    try {
        QuerySession().run(message);
    } catch (const Failure& refusal) {
        expect(refusal.code == code,
               "expected code " + std::to_string(code) + ", got " + describe(refusal));
        return describe(refusal);
    }
    throw Deviation("the query was answered instead of refused");
}

rapidjson::Document parsed(const std::string& body) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(body.data(), body.size());
    return document;
}

std::string textIn(const std::string& body, const char* name) {
    return textMember(parsed(body), name).value_or("");
}

std::set<std::string> imageKeysIn(const std::string& feedback) {
    const rapidjson::Document document = parsed(feedback);
    std::set<std::string> keys;
    if (!document.IsObject() || !document.HasMember("feedbackImageKeys")) return keys;
    const auto& list = document["feedbackImageKeys"];
    if (!list.IsArray()) return keys;
    for (const auto& key : list.GetArray())
        if (key.IsString()) keys.emplace(key.GetString(), key.GetStringLength());
    return keys;
}

/// A JPEG file without an image, told from others by its comment.
std::string jpegWithComment(const std::string& comment) {
    const std::size_t length = comment.size() + 2;  // the length counts itself
    return "\xFF\xD8\xFF\xFE" +
           std::string{static_cast<char>(length >> 8), static_cast<char>(length & 0xFF)} + comment +
           "\xFF\xD9";
}

/// Size and hash, by which pictures here and at the gateway are compared.
using Print = std::pair<std::uint64_t, std::string>;

std::set<Print> printsOf(const std::vector<std::string>& pictures) {
    std::set<Print> prints;
    for (const auto& picture : pictures)
        prints.emplace(picture.size(), sha256(picture));
    return prints;
}

std::set<Print> printsAt(const GatewayControl& gateway, const std::set<std::string>& imageKeys) {
    std::set<Print> prints;
    for (const auto& picture : gateway.pictures())
        if (imageKeys.count(picture.imageKey) != 0) prints.emplace(picture.size, picture.sha256);
    return prints;
}

std::shared_ptr<Veltra::LLMComment> makeComment(const std::string& traceId,
                                                const std::vector<std::string>& pictures) {
    std::unordered_set<std::string> encoded;
    for (const auto& picture : pictures)
        encoded.insert(Veltra::EncodeBase64(picture.data(), picture.size()));
    auto comment = std::make_shared<Veltra::LLMComment>(traceId);
    comment->SetSatisfactionLevel(static_cast<Veltra::SatisfactionLevel>(2));
    comment->SetLLMErrType(static_cast<Veltra::LLMErrType>(1));
    comment->SetComments("The tone is off.");
    comment->SetCountry("DE");
    comment->SetPictures(encoded);
    return comment;
}

}  // namespace

Demo::Demo(std::string gateway, GatewayControl control, Credentials credentials)
    : gateway_(std::move(gateway)),
      control_(std::move(control)),
      credentials_(std::move(credentials)) {}

std::vector<Demo::Step> Demo::steps() {
    return {
        {"enable the layer", [this] { return enable(); }},
        {"probe and set the gateway's domain", [this] { return setDomain(); }},
        {"log in with two key pairs", [this] { return logIn(); }},
        {"screen a value against a phrase list", [this] { return screen(); }},
        {"query \"greeting\"",
         [this] {
             return ask("greeting", {{"name", "Ada"}, {"place", "the library"}},
                        "Hello Ada, welcome to the library.");
         }},
        {"query \"summary\"",
         [this] {
             return ask("summary", {{"sentences", "2"}, {"text", "Rain fell. It stopped."}},
                        "Summarise the following text in at most 2 sentences:\n"
                        "Rain fell. It stopped.");
         }},
        {"query \"translation\"",
         [this] {
             return ask("translation", {{"from", "German"}, {"to", "English"}, {"text", "Grüße"}},
                        "Translate from German to English: Grüße");
         }},
        {"query with a token that is rejected", [this] { return renew(); }},
        {"query that the gateway refuses", [this] { return refuse(); }},
        {"submit feedback with two pictures", [this] { return giveFeedback(); }},
        {"withdraw the feedback", [this] { return withdraw(true); }},
        {"withdraw it once more", [this] { return withdraw(false); }},
        {"shut down", [this] { return shutDown(); }},
    };
}

void Demo::beginStep() {
    for (const auto& request : control_.requests())
        lastSeen_ = std::max(lastSeen_, request.number);
}

std::string Demo::enable() {
    expect(Veltra::Veltra_Enable() && Veltra::Veltra_IsEnable(), "the layer is not enabled");
    return "enabled";
}

std::string Demo::setDomain() {
    expect(Veltra::Veltra_IsDomainValid(gateway_), gateway_ + " did not answer the probe");
    expect(Veltra::Veltra_SetDomain(gateway_), gateway_ + " was not accepted");
    const auto model = control_.modelName();
    hasModel_ = !model.empty();
    return gateway_ + " answers and is set" + (hasModel_ ? "; its model is " + model : "");
}

std::string Demo::logIn() {
    Credentials pairs = credentials_;
    pairs.keys.insert(pairs.keys.begin(), {kRetiredApp, "retired-secret"});
    expect(Veltra::Veltra_Authentication(Veltra::ProductType::Default, pairs.licence()),
           "no key pair yielded a token");
    const auto requests = seen(kTokenPath);
    expect(requests.size() == 2,
           "expected 2 token requests at the gateway, it got " + std::to_string(requests.size()));
    expect(textIn(requests[0], "appKey") == kRetiredApp &&
               textIn(requests[1], "appKey") == pairs.keys[1].appKey,
           "the pairs were not tried in order");
    expect(Veltra::Veltra_IsLLMServiceValid(), "the service is not usable after the login");
    return "the first was refused, the second accepted";
}

std::string Demo::screen() {
    PhraseList phrases;
    phrases.add("project bluebird");
    phrases.add("merger");
    expect(Veltra::Veltra_SetsitiveWords(phrases.keys, phrases.mostWords),
           "the phrase list was not accepted");
    const auto message =
        makeMessage("summary", {{"sentences", "1"}, {"text", "On project bluebird: a memo."}});
    const std::string refusal = refusalOf(message, kSensitive);
    expect(seen(kQueryPath).empty(), "the query reached the gateway nevertheless");
    return "refused before anything was sent: " + refusal;
}

std::string Demo::ask(const std::string& promptKey, const Elements& elements,
                      const std::string& rendered) {
    traceId_ = newTraceId();
    const auto message = makeMessage(promptKey, elements);
    message->SetSessionID(traceId_);
    std::string answer;
    try {
        answer = QuerySession().run(message);
    } catch (const Failure& refusal) {
        throw Deviation("the query was refused: " + describe(refusal));
    }
    expect(hasModel_ ? !answer.empty() : answer == rendered,
           "expected " + (hasModel_ ? "a text" : inQuotes(rendered)) + ", got " + inQuotes(answer));
    expect(!seen(kQueryPath).empty(), "the gateway did not see the query");
    return inQuotes(answer);
}

std::string Demo::renew() {
    control_.expireTokens();
    const std::string answer = ask("greeting", {{"name", "Grace"}, {"place", "the library"}},
                                   "Hello Grace, welcome to the library.");
    const auto renewals = seen(kTokenPath).size();
    expect(renewals == 1, "expected one renewal, the gateway saw " + std::to_string(renewals));
    const auto queries = seen(kQueryPath).size();
    expect(queries == 2,
           "expected the query and its repeat, the gateway saw " + std::to_string(queries));
    return "token rejected, renewed, query repeated: " + answer;
}

std::string Demo::refuse() {
    return refusalOf(makeMessage("no-such-template", {}), kRefused);
}

std::string Demo::giveFeedback() {
    const std::vector<std::string> pictures = {jpegWithComment("before"), jpegWithComment("after")};
    const auto id =
        submitFeedback(makeComment(traceId_, pictures), OutputElsewhere::Target::Nowhere);
    expect(id.has_value(), "the feedback was not accepted");
    expect(!id->empty(), "the gateway gave the feedback no id");
    feedbackId_ = *id;
    const auto posts = seen(kFeedbackPath);
    expect(posts.size() == 1,
           "expected one feedback at the gateway, it got " + std::to_string(posts.size()));
    expect(textIn(posts[0], "traceId") == traceId_, "the feedback names another query");
    expect(printsAt(control_, imageKeysIn(posts[0])) == printsOf(pictures),
           "the pictures at the gateway are not the two that were sent");
    return "feedback id " + feedbackId_ + ", on the last answer; the gateway has both pictures";
}

std::string Demo::withdraw(bool granted) {
    expect(Veltra::Veltra_CancleComments(feedbackId_) == granted,
           granted ? "the withdrawal was refused" : "the gateway accepted it again");
    const auto requests = seen(kCancelPath);
    expect(requests.size() == 1 && textIn(requests[0], "feedbackId") == feedbackId_,
           "the gateway did not see the withdrawal exactly once");
    return granted ? "withdrawn" : "refused, since it is already withdrawn";
}

std::string Demo::shutDown() {
    expect(Veltra::Veltra_Unit(), "the monitor thread was not stopped");
    expect(Veltra::Veltra_Disable() && !Veltra::Veltra_IsEnable(), "the layer is still enabled");
    refusalOf(makeMessage("greeting", {}), kNotUsable);
    return "monitor thread ended, layer disabled";
}

std::vector<std::string> Demo::seen(std::string_view path) const {
    std::vector<std::string> bodies;
    for (const auto& request : control_.requests())
        if (request.number > lastSeen_ && request.path == path && !request.body.empty())
            bodies.push_back(request.body);
    return bodies;
}

}  // namespace tool

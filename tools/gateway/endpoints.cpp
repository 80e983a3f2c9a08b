#include "endpoints.h"

#include "envelope.h"
#include "hex.h"
#include "templates.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMaxTokens = 10000;
constexpr std::string_view kBearer = "Bearer ";

std::map<std::string, Template> byKey(const std::vector<Template>& templates) {
    std::map<std::string, Template> map;
    for (const auto& entry : templates)
        map[entry.key] = entry;
    return map;
}

bool readElements(const rapidjson::Value& body, std::map<std::string, std::string>& elements) {
    const auto* object = member(body, "replaceElements");
    if (object == nullptr || !object->IsObject()) return false;
    for (const auto& [name, value] : object->GetObject()) {
        if (!value.IsString()) return false;
        elements.emplace(std::string(name.GetString(), name.GetStringLength()),
                         std::string(value.GetString(), value.GetStringLength()));
    }
    return true;
}

// What the gateway is asked to look at besides rendering.
struct Screening {
    std::vector<std::string> words;
    bool ofAnswer = false;
};

bool readTexts(const rapidjson::Value& config, const char* name, std::vector<std::string>& texts) {
    const auto* list = member(config, name);
    if (list == nullptr || !list->IsArray()) return false;
    for (const auto& text : list->GetArray()) {
        if (!text.IsString()) return false;
        texts.emplace_back(text.GetString(), text.GetStringLength());
    }
    return true;
}

bool readScreening(const rapidjson::Value& body, Screening& screening) {
    const auto* config = member(body, "sensitiveContentCfg");
    if (config == nullptr) return true;
    std::vector<std::string> tags;
    if (member(*config, "filterTags") != nullptr && !readTexts(*config, "filterTags", tags))
        return false;
    screening.ofAnswer = std::find(tags.begin(), tags.end(), "checkOutput") != tags.end();
    return readTexts(*config, "inputWords", screening.words);
}

Answer contentRefusal(std::string_view what) {
    return refusal("083001", std::string(kContentRejected) + ": the " + std::string(what) +
                                 " is not acceptable");
}

}  // namespace

Endpoints::Endpoints(const Options& options)
    : options_(options), templates_(byKey(options.templates)), storage_(options) {}

void Endpoints::setAreaDomain(std::string domain) {
    const std::scoped_lock lock(mutex_);
    areaDomain_ = std::move(domain);
}

void Endpoints::connectModel() {
    if (!options_.model.url.empty()) model_ = std::make_unique<Model>(options_.model);
}

Answer Endpoints::answer(const Request& request, const std::stop_token& left) {
    switch (kindOf(request)) {
        case RequestKind::Token:
            return token(request.body);
        case RequestKind::Query:
        case RequestKind::Probe:
            return withToken(request, [&](const auto& body) { return result(body, left); });
        case RequestKind::Slots:
            return withToken(request, [&](const auto& body) { return storage_.grant(body); });
        case RequestKind::Feedback:
            return withToken(request, [&](const auto& body) { return feedbacks_.submit(body); });
        case RequestKind::Withdrawal:
            return withToken(request, [&](const auto& body) { return feedbacks_.withdraw(body); });
        case RequestKind::Push:
            return storage_.put(request);
        case RequestKind::Any:
            break;
    }
    return refusal("404000", "no such endpoint: " + showable(request.method + ' ' + request.path),
                   404);
}

Answer Endpoints::token(const std::string& body) {
    const auto document = parseJson(body);
    const auto appKey = textMember(document, "appKey");
    const auto secretKey = textMember(document, "secretKey");
    if (!appKey || !secretKey) return malformed(R"(needs the texts "appKey" and "secretKey")");
    if (!accepts(*appKey, *secretKey)) return refusal("403001", "unknown access key pair");
    std::string areaDomain;
    const auto token = issueToken(areaDomain);
    return success([&](JsonWriter& writer) {
        write(writer, "accessToken", token);
        write(writer, "expireTime", std::to_string(options_.tokenLifetime.count()));
        write(writer, "areaDomain", areaDomain);
    });
}

bool Endpoints::accepts(const std::string& appKey, const std::string& secretKey) const {
    return std::any_of(options_.keys.begin(), options_.keys.end(), [&](const KeyPair& pair) {
        return pair.appKey == appKey && pair.secretKey == secretKey;
    });
}

std::string Endpoints::issueToken(std::string& areaDomain) {
    const std::scoped_lock lock(mutex_);
    areaDomain = areaDomain_;
    std::string token;
    if (nextTokens_.empty()) {
        token = randomHex();
    } else {
        token = std::move(nextTokens_.front());
        nextTokens_.pop_front();
    }
    if (tokens_.insert_or_assign(token, Clock::now() + options_.tokenLifetime).second)
        tokenOrder_.push_back(token);
    if (tokenOrder_.size() > kMaxTokens) {
        tokens_.erase(tokenOrder_.front());
        tokenOrder_.pop_front();
    }
    ++issued_;
    return token;
}

bool Endpoints::holds(const std::string& authorization) const {
    if (authorization.compare(0, kBearer.size(), kBearer) != 0) return false;
    const std::scoped_lock lock(mutex_);
    const auto found = tokens_.find(authorization.substr(kBearer.size()));
    return found != tokens_.end() && Clock::now() < found->second;
}

Answer Endpoints::withToken(const Request& request,
                            const std::function<Answer(const rapidjson::Value&)>& endpoint) const {
    if (request.body.empty()) return malformed("the request has no body");
    if (!holds(request.header("Authorization"))) return tokenRefusal();
    const auto document = parseJson(request.body);
    if (!document.IsObject()) return malformed("the body is not a JSON object");
    auto answer = endpoint(document);
    answer.traceId = textMember(document, "traceId").value_or("");
    return answer;
}

Answer Endpoints::result(const rapidjson::Value& document, const std::stop_token& left) const {
    const auto promptKey = textMember(document, "promptKey");
    if (!promptKey) return malformed(R"(needs the text "promptKey")");
    std::map<std::string, std::string> elements;
    if (!readElements(document, elements))
        return malformed(R"(needs "replaceElements", an object of texts)");
    Screening screening;
    if (!readScreening(document, screening))
        return malformed(
            R"("sensitiveContentCfg" needs "inputWords" and "filterTags", arrays of texts)");

    const auto found = templates_.find(*promptKey);
    if (found == templates_.end()) return refusal("404001", "unknown prompt key: " + *promptKey);
    if (std::any_of(screening.words.begin(), screening.words.end(),
                    [&](const std::string& word) { return forbids(word); }))
        return contentRefusal("input");
    const auto screened = [&](const std::string& text) {
        if (screening.ofAnswer && forbids(text)) return contentRefusal("output");
        return success([&](JsonWriter& writer) { write(writer, "resultStr", text); });
    };
    const auto prompt = render(found->second.text, elements);
    if (!model_) return screened(prompt);
    auto [call, refused] = model_->ask(found->second, prompt, left);
    auto answer = refused ? std::move(*refused) : screened(call.answer);
    answer.model = std::move(call);
    return answer;
}

bool Endpoints::forbids(const std::string& text) const {
    return !options_.forbiddenText.empty() && text.find(options_.forbiddenText) != text.npos;
}

void Endpoints::expireTokens() {
    const std::scoped_lock lock(mutex_);
    tokens_.clear();
    tokenOrder_.clear();
}

void Endpoints::setNextToken(std::string text) {
    const std::scoped_lock lock(mutex_);
    nextTokens_.push_back(std::move(text));
}

std::uint64_t Endpoints::tokensIssued() const {
    const std::scoped_lock lock(mutex_);
    return issued_;
}

}  // namespace gateway

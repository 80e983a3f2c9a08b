#include "roads.h"

#include "envelope.h"
#include "hex.h"
#include "templates.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMaxTokens = 10000;
constexpr std::string_view kBearer = "Bearer ";

std::map<std::string, std::string> byKey(const std::vector<Template>& templates) {
    std::map<std::string, std::string> map;
    for (const auto& [key, text] : templates)
        map[key] = text;
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

bool readWords(const rapidjson::Value& body, std::vector<std::string>& words) {
    const auto* config = member(body, "sensitiveContentCfg");
    if (config == nullptr) return true;
    const auto* list = member(*config, "inputWords");
    if (list == nullptr || !list->IsArray()) return false;
    for (const auto& word : list->GetArray()) {
        if (!word.IsString()) return false;
        words.emplace_back(word.GetString(), word.GetStringLength());
    }
    return true;
}

std::string_view withoutQuery(std::string_view path) {
    return path.substr(0, path.find('?'));
}

}  // namespace

Roads::Roads(const Options& options)
    : options_(options), templates_(byKey(options.templates)), storage_(options) {}

void Roads::setAreaDomain(std::string domain) {
    const std::scoped_lock lock(mutex_);
    areaDomain_ = std::move(domain);
}

Answer Roads::answer(const Request& request) {
    const auto path = withoutQuery(request.path);
    if (request.method == "POST" && path == kTokenPath) return token(request.body);
    if (request.method == "POST" && path == kQueryPath)
        return withToken(request, [&](const auto& body) { return result(body); });
    if (request.method == "POST" && path == kFeedbackPath)
        return withToken(request, [&](const auto& body) { return feedbacks_.submit(body); });
    if (request.method == "POST" && path == kUploadPath)
        return withToken(request, [&](const auto& body) { return storage_.grant(body); });
    if (request.method == "POST" && path == kCancelPath)
        return withToken(request, [&](const auto& body) { return feedbacks_.withdraw(body); });
    if (request.method == "PUT" && path.substr(0, kStoragePrefix.size()) == kStoragePrefix)
        return storage_.put(request);
    return refusal("404000", "no such road: " + showable(request.method + ' ' + request.path), 404);
}

Answer Roads::token(const std::string& body) {
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

bool Roads::accepts(const std::string& appKey, const std::string& secretKey) const {
    return std::any_of(options_.keys.begin(), options_.keys.end(), [&](const KeyPair& pair) {
        return pair.appKey == appKey && pair.secretKey == secretKey;
    });
}

std::string Roads::issueToken(std::string& areaDomain) {
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

bool Roads::holds(const std::string& authorization) const {
    if (authorization.compare(0, kBearer.size(), kBearer) != 0) return false;
    const std::scoped_lock lock(mutex_);
    const auto found = tokens_.find(authorization.substr(kBearer.size()));
    return found != tokens_.end() && Clock::now() < found->second;
}

Answer Roads::withToken(const Request& request,
                        const std::function<Answer(const rapidjson::Value&)>& road) const {
    if (request.body.empty()) return malformed("the request has no body");
    if (!holds(request.header("Authorization"))) return tokenRefusal();
    const auto document = parseJson(request.body);
    if (!document.IsObject()) return malformed("the body is not a JSON object");
    return road(document);
}

Answer Roads::result(const rapidjson::Value& document) const {
    const auto promptKey = textMember(document, "promptKey");
    if (!promptKey) return malformed(R"(needs the text "promptKey")");
    std::map<std::string, std::string> elements;
    if (!readElements(document, elements))
        return malformed(R"(needs "replaceElements", an object of texts)");
    std::vector<std::string> words;
    if (!readWords(document, words))
        return malformed(R"("sensitiveContentCfg" needs "inputWords", an array of texts)");

    const auto text = templates_.find(*promptKey);
    if (text == templates_.end()) return refusal("404001", "unknown prompt key: " + *promptKey);
    const auto isForbidden = [&](const std::string& word) {
        return !options_.forbiddenText.empty() && word.find(options_.forbiddenText) != word.npos;
    };
    if (std::any_of(words.begin(), words.end(), isForbidden))
        return refusal("083001", std::string(kContentRejected) + ": the input is not acceptable");
    return success(
        [&](JsonWriter& writer) { write(writer, "resultStr", render(text->second, elements)); });
}

void Roads::expireTokens() {
    const std::scoped_lock lock(mutex_);
    tokens_.clear();
    tokenOrder_.clear();
}

void Roads::setNextToken(std::string text) {
    const std::scoped_lock lock(mutex_);
    nextTokens_.push_back(std::move(text));
}

std::uint64_t Roads::tokensIssued() const {
    const std::scoped_lock lock(mutex_);
    return issued_;
}

}  // namespace gateway

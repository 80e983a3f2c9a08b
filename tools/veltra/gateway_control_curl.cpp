#include "gateway_control_curl.h"

#include "json_read.h"
#include "output.h"

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <utility>

namespace tool {

namespace {

constexpr long kTimeLimitMs = 10000;

struct CurlDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using CurlPtr = std::unique_ptr<CURL, CurlDeleter>;

extern "C" std::size_t appendToString(char* data, std::size_t size, std::size_t count,
                                      void* text) noexcept {
    try {
        static_cast<std::string*>(text)->append(data, size * count);
        return size * count;
    } catch (const std::exception&) {
        return 0;  // ends the exchange with an error
    }
}

template <class Value>
void set(const CurlPtr& handle, CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(handle.get(), option, value);
    if (code != CURLE_OK) throw Failure(std::string("curl: ") + curl_easy_strerror(code));
}

/// The array of that name in an answer, which lives in `document`.
rapidjson::Value& listIn(rapidjson::Document& document, const std::string& answer,
                         const char* name) {
    document.Parse<rapidjson::kParseIterativeFlag>(answer.data(), answer.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember(name) ||
        !document[name].IsArray())
        throw Failure(std::string("the gateway's list of ") + name + " cannot be read");
    return document[name];
}

std::uint64_t numberOf(const rapidjson::Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found != object.MemberEnd() && found->value.IsUint64() ? found->value.GetUint64() : 0;
}

}  // namespace

GatewayControl::GatewayControl(std::string url, std::string caFile)
    : url_(std::move(url)), caFile_(std::move(caFile)) {}

void GatewayControl::expireTokens() const {
    exchange(Method::Post, "expire-tokens");
}

std::vector<GatewayControl::Seen> GatewayControl::requests() const {
    rapidjson::Document document;
    std::vector<Seen> seen;
    for (const auto& request :
         listIn(document, exchange(Method::Get, "requests"), "requests").GetArray()) {
        if (!request.IsObject()) continue;
        seen.push_back({numberOf(request, "number"), textMember(request, "path").value_or(""),
                        textMember(request, "body").value_or("")});
    }
    return seen;
}

std::vector<GatewayControl::Picture> GatewayControl::pictures() const {
    rapidjson::Document document;
    std::vector<Picture> pictures;
    for (const auto& picture :
         listIn(document, exchange(Method::Get, "pictures"), "pictures").GetArray()) {
        if (!picture.IsObject()) continue;
        pictures.push_back({textMember(picture, "imageKey").value_or(""), numberOf(picture, "size"),
                            textMember(picture, "sha256").value_or("")});
    }
    return pictures;
}

std::string GatewayControl::exchange(Method method, const std::string& path) const {
    const CurlPtr handle(curl_easy_init());
    if (!handle) throw Failure("curl cannot be started");
    const std::string url = url_ + "/control/" + path;
    std::string answer;
    set(handle, CURLOPT_URL, url.c_str());
    set(handle, CURLOPT_NOSIGNAL, 1L);
    set(handle, CURLOPT_TIMEOUT_MS, kTimeLimitMs);
    set(handle, CURLOPT_NOPROXY, "*");
    set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    set(handle, CURLOPT_FAILONERROR, 1L);
    set(handle, CURLOPT_WRITEFUNCTION, &appendToString);
    set(handle, CURLOPT_WRITEDATA, &answer);
    if (!caFile_.empty()) set(handle, CURLOPT_CAINFO, caFile_.c_str());
    if (method == Method::Post) set(handle, CURLOPT_COPYPOSTFIELDS, "");
    const CURLcode code = curl_easy_perform(handle.get());
    if (code != CURLE_OK) throw Failure(url + ": " + curl_easy_strerror(code));
    return answer;
}

}  // namespace tool

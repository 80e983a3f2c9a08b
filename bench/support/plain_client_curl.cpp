#include "support/answerer.h"
#include "support/plain_client.h"

#include <rapidjson/document.h>

#include <cstddef>
#include <utility>

namespace bench {
namespace {

std::size_t Append(char* data, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

}  // namespace

PlainClient::PlainClient(const std::string& url, const std::string& caFile, std::string body)
    : easy_(curl_easy_init()), body_(std::move(body)) {
    const std::string authorization = std::string("Authorization: Bearer ") + grantedToken;
    for (const char* line : {authorization.c_str(), "Content-Type: application/json", "Expect:"})
        headers_.reset(curl_slist_append(headers_.release(), line));
    CURL* const easy = easy_.get();
    curl_easy_setopt(easy, CURLOPT_URL, (url + queryPath).c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    if (!caFile.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body_.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body_.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &received_);
}

bool PlainClient::Query(std::string& answer) {
    received_.clear();
    long status = 0;
    if (curl_easy_perform(easy_.get()) != CURLE_OK) return false;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 200) return false;

    rapidjson::Document document;
    document.Parse(received_.data(), received_.size());
    if (document.HasParseError() || !document.IsObject()) return false;
    const auto code = document.FindMember("errorCode");
    const auto data = document.FindMember("data");
    if (code == document.MemberEnd() || code->value != "0" || data == document.MemberEnd())
        return false;
    const auto result = data->value.FindMember("resultStr");
    if (result == data->value.MemberEnd() || !result->value.IsString()) return false;
    answer.assign(result->value.GetString(), result->value.GetStringLength());
    return true;
}

}  // namespace bench

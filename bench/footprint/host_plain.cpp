// The same host on the HTTP and JSON libraries alone.

#include "footprint/resident_linux.h"

#include <curl/curl.h>
#include <rapidjson/document.h>

#include <cstddef>
#include <string>

namespace {

std::size_t Append(char* data, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

/// The text that the answer holds under "data" and that name; empty when anything went wrong.
std::string Post(CURL* easy, const std::string& url, const std::string& body, curl_slist* headers,
                 const char* name) {
    std::string received;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &received);
    if (curl_easy_perform(easy) != CURLE_OK) return {};
    rapidjson::Document document;
    document.Parse(received.data(), received.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("data")) return {};
    const auto& data = document["data"];
    if (!data.HasMember(name) || !data[name].IsString()) return {};
    return data[name].GetString();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 0;
    const std::string gateway = argv[1];
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* const easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_CAINFO, argv[2]);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    const std::string token =
        Post(easy, gateway + "/api/tmqgw/v1/token/get",
             R"({"appKey":"bench-app","secretKey":"bench-secret"})", headers, "accessToken");
    headers = curl_slist_append(headers, ("Authorization: Bearer " + token).c_str());
    const std::string answer =
        Post(easy, gateway + "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis",
             R"({"traceId":"1","promptKey":"greeting","replaceElements":{"name":"Ada"}})", headers,
             "resultStr");
    if (token.empty() || answer.empty()) return 1;
    ReportResidentMemory();
    curl_slist_free_all(headers);
    curl_easy_cleanup(easy);
    curl_global_cleanup();
    return 0;
}

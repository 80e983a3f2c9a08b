#include "gateway_control.h"
#include "output.h"

#include <curl/curl.h>

#include <cstddef>
#include <exception>
#include <memory>

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

}  // namespace

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

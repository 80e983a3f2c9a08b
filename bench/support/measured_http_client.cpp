#include "support/measured_http_client.h"

#include "support/allocation_count.h"
#include "support/plain_client.h"

#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <cstddef>
#include <ctime>
#include <memory>
#include <utility>

namespace bench {
namespace {

constinit thread_local LastExchange lastExchange{};

// Set once, before the first exchange.
std::string& CaFile() {
    static std::string file;
    return file;
}

std::size_t Append(char* data, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

/// False when no answer came.
bool Perform(const Oak::Net::CHttpClientRequest& request, long& status, std::string& body) {
    thread_local const std::unique_ptr<CURL, CurlDeleter> kept(curl_easy_init());
    CURL* const easy = kept.get();
    std::unique_ptr<curl_slist, CurlDeleter> headers;
    const auto add = [&headers](const std::string& line) {
        headers.reset(curl_slist_append(headers.release(), line.c_str()));
    };
    for (const auto& [name, value] : request.Headers())
        add(name + ": " + value);
    if (!request.ContentType().empty()) add("Content-Type: " + request.ContentType());
    add("Expect:");
    curl_easy_setopt(easy, CURLOPT_URL, request.Url().Text().c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_CAINFO, CaFile().c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.Data().size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.Data().data());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
    const bool done = curl_easy_perform(easy) == CURLE_OK;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    return done;
}

}  // namespace

Moment Moment::Now() {
    std::timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return {static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec),
            Allocations()};
}

LastExchange TheLastExchange() {
    return lastExchange;
}

void TrustAuthority(const std::string& caFile) {
    CaFile() = caFile;
}

}  // namespace bench

namespace Oak::Net {

HttpClient::HttpClient() {}
HttpClient::~HttpClient() {}

bool HttpClient::Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                      Error* /*error*/) {
    bench::lastExchange.begin = bench::Moment::Now();
    long status = 0;
    std::string body;
    const bool done = bench::Perform(request, status, body);
    if (done) response->Deliver(static_cast<std::int32_t>(status), std::move(body));
    bench::lastExchange.end = bench::Moment::Now();
    return done;
}

void HttpClient::WakeAll() noexcept {}  // nobody cancels here

void SetHttpClientOptions(const HttpClientOptions& /*options*/) {}

}  // namespace Oak::Net

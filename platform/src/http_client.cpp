#include "http_exchange.h"

#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <exception>
#include <optional>
#include <string>

namespace Oak::Net {
namespace {

/// The visit ends before any record is written, and a log handler runs.
std::optional<Failure> Attempt(const CHttpClientRequest& request, CHttpClientResponse* response,
                               std::string& shown) noexcept {
    const TransportVisit visit;
    if (visit.Get() == nullptr) return exchangeEnded;
    try {
        return Exchange(*visit.Get(), request, response, shown);
    } catch (const std::exception&) {
        return outOfMemory;
    }
}

}  // namespace

HttpClient::HttpClient() {
    const TransportVisit start;
}

HttpClient::~HttpClient() {}  // the transport outlives every client

bool HttpClient::Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                      Error* error) {
    std::string shown;
    const auto failure = Attempt(request, response, shown);
    if (!failure) return true;
    Describe(*failure, error);
    if (failure->code != exchangeEnded.code) Report(*failure, request.Method(), shown);
    return false;
}

void SetHttpClientOptions(const HttpClientOptions& options) {
    const TransportVisit visit;
    if (visit.Get() != nullptr) SetOptions(*visit.Get(), options);
}

}  // namespace Oak::Net

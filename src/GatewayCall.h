#ifndef VELTRA_SRC_GATEWAYCALL_H
#define VELTRA_SRC_GATEWAYCALL_H

#include <Oak/Net/HttpClient.h>

#include <cstdint>
#include <string>

/// What the calls to the gateway share.

namespace Veltra {

/// Path of the queries; also that of the domain probe.
inline constexpr const char* kQueryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";

/// Where a gateway call goes and how it identifies itself, read at one moment.
struct GatewayAccess {
    std::string domain;
    std::string token;
    std::uint64_t tokenGeneration = 0;  ///< tells this token from any other, even of the same text
};

/// A POST of `body` with the bearer token.
Oak::Net::CHttpClientRequest MakeGatewayRequest(const GatewayAccess& access, const char* path,
                                                const std::string& body);

/// Sends once.
bool SendOnce(const Oak::Net::CHttpClientRequest& request, Oak::Net::CHttpClientResponse& response,
              Oak::Net::HttpClient::Error& error);

/// Sends up to three times, one right after the other, until an answer has status 200. `refused`
/// gets the status of each answer with another one; `mayGoOn` is asked before a repeat. False when
/// no attempt had status 200.
template <class Refused, class MayGoOn>
bool SendUntilOk(const Oak::Net::CHttpClientRequest& request,
                 Oak::Net::CHttpClientResponse& response, Refused refused, MayGoOn mayGoOn) {
    constexpr int kAttempts = 3;
    Oak::Net::HttpClient::Error error{};
    for (int attempt = 0; attempt < kAttempts && (attempt == 0 || mayGoOn()); ++attempt) {
        if (!SendOnce(request, response, error)) continue;
        if (response.GetStatusCode() == 200) return true;
        refused(response.GetStatusCode());
    }
    return false;
}

template <class Refused>
bool SendUntilOk(const Oak::Net::CHttpClientRequest& request,
                 Oak::Net::CHttpClientResponse& response, Refused refused) {
    return SendUntilOk(request, response, refused, [] { return true; });
}

/// Sends a gateway call in the same way, and logs in the name of `operation` the status of each
/// answer with another one than 200, and at last that no attempt had it.
bool SendGatewayCall(const char* operation, const Oak::Net::CHttpClientRequest& request,
                     Oak::Net::CHttpClientResponse& response);

}  // namespace Veltra

#endif

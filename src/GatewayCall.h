#ifndef VELTRA_SRC_GATEWAYCALL_H
#define VELTRA_SRC_GATEWAYCALL_H

#include "CallWatch.h"

#include <Oak/Base/Wipe.h>
#include <Oak/Net/HttpClient.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

/// What the calls to the gateway share.

namespace Veltra {

/// Path of the queries; also that of the domain probe.
inline constexpr const char* kQueryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";

/// The limit of exchanges that carry no model's answer and no picture: the gateway has nothing to
/// think about there. A shorter one of the options counts instead.
inline constexpr std::chrono::milliseconds kShortExchange{15000};
/// The limit of the others: that of the options alone.
inline constexpr std::chrono::milliseconds kLongExchange{0};

/// Where a gateway call goes and how it identifies itself, read at one moment.
struct GatewayAccess {
    GatewayAccess(std::string llmDomain, std::string bearer, std::uint64_t generation)
        : domain(std::move(llmDomain)), token(std::move(bearer)), tokenGeneration(generation) {}
    GatewayAccess(const GatewayAccess&) = delete;
    GatewayAccess(GatewayAccess&&) = default;
    GatewayAccess& operator=(const GatewayAccess&) = delete;
    GatewayAccess& operator=(GatewayAccess&&) = delete;
    ~GatewayAccess() { Oak::Base::Wipe(token); }

    std::string domain;
    std::string token;
    std::uint64_t tokenGeneration;  ///< tells this token from any other, even of the same text
};

/// A POST of `body` with the bearer token.
Oak::Net::CHttpClientRequest MakeGatewayRequest(const GatewayAccess& access, const char* path,
                                                std::string body);

/// Sends once, within `limit`, unless the call is over. Every exchange of the layer goes through
/// here: the call's report has its attempts, statuses and failures from this place.
bool SendOnce(Oak::Net::CHttpClientRequest& request, Oak::Net::CHttpClientResponse& response,
              std::chrono::milliseconds limit);

/// Sends up to three times, one right after the other, until an answer has status 200, and as long
/// as the call may go on. `refused` gets the status of each answer with another one. False when no
/// attempt had status 200.
template <class Refused>
bool SendUntilOk(Oak::Net::CHttpClientRequest& request, Oak::Net::CHttpClientResponse& response,
                 std::chrono::milliseconds limit, Refused refused) {
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts && CallWatch::MayGoOn(); ++attempt) {
        if (!SendOnce(request, response, limit)) continue;
        if (response.GetStatusCode() == 200) return true;
        refused(response.GetStatusCode());
    }
    return false;
}

/// Sends a gateway call in the same way, and logs in the name of `operation` the status of each
/// answer with another one than 200, and at last that no attempt had it.
bool SendGatewayCall(const char* operation, Oak::Net::CHttpClientRequest& request,
                     Oak::Net::CHttpClientResponse& response, std::chrono::milliseconds limit);

/// Takes down a refusal by the gateway, which gave this code and message; one without a code can't
/// be understood.
void NoteRefusal(const std::string& code, const std::string& message);

}  // namespace Veltra

#endif

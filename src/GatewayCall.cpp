#include "GatewayCall.h"

#include "Log.h"

#include <algorithm>
#include <utility>

namespace Veltra {

namespace {

CallOutcome OutcomeOf(Oak::Net::FailureReason reason) {
    using Oak::Net::FailureReason;
    switch (reason) {
        case FailureReason::notReached:
            return CallOutcome::NotReached;
        case FailureReason::notTrusted:
            return CallOutcome::NotTrusted;
        case FailureReason::timeOut:
            return CallOutcome::TimedOut;
        case FailureReason::cutOff:
            return CallOutcome::CutOff;
        case FailureReason::tooLarge:
        case FailureReason::notUnderstood:
            return CallOutcome::BadAnswer;
        case FailureReason::refusedUrl:
        case FailureReason::refusedRequest:
            return CallOutcome::NotAllowed;
        case FailureReason::cancelled:
            return CallOutcome::Cancelled;
        case FailureReason::ended:
            return CallOutcome::NotEnabled;
        default:
            return CallOutcome::Failed;
    }
}

/// Whether a code may stand in a line for a person: it comes from outside.
bool IsPlain(const std::string& code) {
    constexpr std::size_t most = 64;
    return code.size() <= most &&
           std::all_of(code.begin(), code.end(), [](char c) { return c > ' ' && c <= '~'; });
}

}  // namespace

Oak::Net::CHttpClientRequest MakeGatewayRequest(const GatewayAccess& access, const char* path,
                                                std::string body) {
    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(access.domain + path));
    request.SetContentType("application/json");
    std::string bearer = "Bearer " + access.token;
    request.AddHeaderField("Authorization", bearer);
    Oak::Base::Wipe(bearer);
    request.SetData(std::move(body));
    return request;
}

bool SendOnce(Oak::Net::CHttpClientRequest& request, Oak::Net::CHttpClientResponse& response,
              std::chrono::milliseconds limit) {
    if (CallWatch::Over()) return false;
    request.SetPatience(CallWatch::ForExchange(limit));
    CallWatch::NoteAttempt();
    const Oak::Net::HttpClient client;  // stays alive across the exchange
    Oak::Net::HttpClient::Error error{};
    if (!Oak::Net::HttpClient::Send(request, &response, &error)) {
        CallWatch::NoteFailure(OutcomeOf(error.reason), error.text);
        return false;
    }
    const std::int32_t status = response.GetStatusCode();
    CallWatch::NoteStatus(status);
    if (status != 200)
        CallWatch::NoteFailure(CallOutcome::BadStatus,
                               "answered with HTTP status " + std::to_string(status));
    return true;
}

bool SendGatewayCall(const char* operation, Oak::Net::CHttpClientRequest& request,
                     Oak::Net::CHttpClientResponse& response, std::chrono::milliseconds limit) {
    const bool sent = SendUntilOk(request, response, limit, [operation](std::int32_t status) {
        VELTRA_LOG(operation, 5, "http client send message failed,errcode:%d", status);
    });
    if (!sent) VELTRA_LOG(operation, 5, "http client send message failed");
    return sent;
}

void NoteRefusal(const std::string& code, const std::string& message) {
    CallWatch::NoteGateway(code, message);
    if (code.empty())
        CallWatch::NoteFailure(CallOutcome::BadAnswer, "the answer holds no error code");
    else
        CallWatch::NoteFailure(CallOutcome::Refused, IsPlain(code)
                                                         ? "the gateway refused with code " + code
                                                         : "the gateway refused");
}

}  // namespace Veltra

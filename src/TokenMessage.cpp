#include "TokenMessage.h"

#include "GatewayCall.h"
#include "JsonText.h"
#include "Log.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Base/Wipe.h>
#include <proto/CRapidJsonProto.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace Veltra {

namespace {

constexpr const char* kTokenPath = "/api/tmqgw/v1/token/get";

/// The number that a text begins with, as decimal digits after optional white space and sign.
std::optional<std::int64_t> LeadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    // from_chars reads a minus sign alone; what follows a plus sign must be a digit.
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    std::int64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc()) return std::nullopt;
    return number;
}

/// Written in one piece of memory, which its request wipes.
std::string TokenRequestBody(const std::string& appKey, const std::string& secretKey) {
    constexpr std::string_view frame = R"({"appKey":"","secretKey":""})";
    std::string body;
    body.reserve(frame.size() + appKey.size() + secretKey.size());
    body += '{';
    AppendMember(body, "appKey", appKey);
    body += ',';
    AppendMember(body, "secretKey", secretKey);
    body += '}';
    return body;
}

/// Overwrites a text that holds a token, whichever way its scope ends.
class WipeAtEnd : private Oak::Base::CNoncopyable {
 public:
    explicit WipeAtEnd(std::string& text) : text_(text) {}
    ~WipeAtEnd() { Oak::Base::Wipe(text_); }

 private:
    std::string& text_;
};

}  // namespace

bool TokenMessage::GetToekn(const std::string& domain, const std::string& appKey,
                            const std::string& secretKey, std::string& token, std::int64_t& expiry,
                            std::string& llmDomain) {
    VELTRA_OPERATION(operation);
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    VELTRA_LOG(operation, 3, "get token use domain :%s", domain.c_str());

    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(domain + kTokenPath));
    request.AddHeaderField("Content-Type", "application/json");
    request.SetSecretData(TokenRequestBody(appKey, secretKey));

    Oak::Net::CHttpClientResponse response;
    if (!SendOnce(request, response, kShortExchange)) {
        VELTRA_LOG(operation, 5, "Request get token failed");
        return false;
    }
    if (response.GetStatusCode() != 200) {
        VELTRA_LOG(operation, 5, "Request get token status_code =%d", response.GetStatusCode());
        return false;
    }
    std::string answer;
    response.GetResponseData(&answer);
    response.WipeData();
    const WipeAtEnd wipesAnswer(answer);
    if (answer.empty()) {
        VELTRA_LOG(operation, 5, "Request get token failed,response is empty");
        CallWatch::NoteFailure(CallOutcome::BadAnswer, "the answer is empty");
        return false;
    }
    if (document->set_str(answer)) {
        const std::string errorCode = document->get_str("/errorCode", "");
        if (errorCode != "0") {
            NoteRefusal(errorCode, document->get_str("/message", ""));
            VELTRA_LOG(operation, 5, "Request get token failed,get errorcode:%s,rsp is:%s",
                       errorCode.c_str(), answer.c_str());
            return false;
        }
        std::string newToken = document->get_str("/data/accessToken", "");
        std::string newDomain = document->get_str("/data/areaDomain", "");
        const auto newExpiry = LeadingNumber(document->get_str("/data/expireTime", ""));
        if (!newToken.empty() && newExpiry && !newDomain.empty()) {
            CallWatch::NoteGateway(errorCode, document->get_str("/message", ""));
            token = std::move(newToken);
            expiry = *newExpiry;
            llmDomain = std::move(newDomain);
            return true;
        }
    }
    CallWatch::NoteFailure(CallOutcome::BadAnswer,
                           "the answer is not JSON, or lacks token, expiry or domain");
    VELTRA_LOG(operation, 5, "Request get token failed,rsp is:%s", answer.c_str());
    VELTRA_LOG(operation, 5, "Request get token failed");
    return false;
}

}  // namespace Veltra

#include "LLMSession.h"

#include "AIManager.h"
#include "GatewayCall.h"
#include "JsonText.h"
#include "Log.h"
#include "Records.h"

#include <Oak/Base/GuidUtil.h>
#include <proto/CRapidJsonProto.h>

#include <boost/algorithm/string/predicate.hpp>

#include <string_view>
#include <utility>
#include <vector>

namespace Veltra {

namespace {

// Codes of the session's error state, as the public header explains them.
constexpr std::int32_t kNoError = 0;
constexpr std::int32_t kNoInputOrToken = 1;
constexpr std::int32_t kNotSent = 2;
constexpr std::int32_t kNotUsable = 3;
constexpr std::int32_t kSensitive = 4;
constexpr std::int32_t kRefused = 6;

// What the gateway's explanation of a refusal holds when it found a forbidden word, and when it
// rejects the token.
constexpr const char* kSensitiveMark = "CCF083001";
constexpr const char* kTokenRejectedMark = "LAP500004";

/// The texts that the gateway is to check.
std::vector<std::string_view> InputWords(const CHumanMessageIMP& record) {
    if (record.filterType == FilterType::None) return {};
    if (!record.sensitiveContent.empty())
        return {record.sensitiveContent.begin(), record.sensitiveContent.end()};
    std::vector<std::string_view> words;
    words.reserve(record.elements.size());
    for (const auto& element : record.elements)
        words.push_back(element.second);
    return words;
}

std::vector<std::string_view> FilterTags(FilterType filterType) {
    const bool checksOutput =
        filterType == FilterType::CheckInputAndOutput || filterType == FilterType::CheckOutput;
    if (!checksOutput) return {};
    return {"checkOutput"};
}

std::string QueryBody(const CHumanMessageIMP& record, const std::string& traceId) {
    std::string body;
    const auto quoted = [&body](std::string_view text) { AppendQuoted(body, text); };
    const auto member = [&body](const auto& pair) { AppendMember(body, pair.first, pair.second); };

    body.reserve(2048);  // most bodies whole, instead of growing there by doubling
    body += '{';
    AppendMember(body, "traceId", traceId);
    body += ',';
    AppendMember(body, "promptKey", record.promptKey);
    body += R"(,"replaceElements":)";
    AppendList(body, '{', '}', record.elements, member);
    body += R"(,"sensitiveContentCfg":{"inputWords":)";
    AppendList(body, '[', ']', InputWords(record), quoted);
    body += R"(,"filterTags":)";
    AppendList(body, '[', ']', FilterTags(record.filterType), quoted);
    body += "}}";
    return body;
}

}  // namespace

struct AISession::Query {
    const char* operation;
    CAIManager& manager;
    std::string body;
    std::string response;
    std::string refusal;                // the gateway's last explanation, kept across a repeat
    std::uint64_t tokenGeneration = 0;  // of the token that the last send carried
};

bool AISession::ExecuteQuery(std::shared_ptr<CHumanMessage> message,
                             std::shared_ptr<CLLMMessage>& result) {
    VELTRA_OPERATION(operation);
    SteeredCall call;
    if (!call) {
        errorCode_ = kNotUsable;
        errorMessage_ = "veltra is not enable";
        return false;
    }
    Query query{operation, *CAIManager::GetInstance(), {}, {}, {}};
    if (!call.End(Run(query, message, result))) return false;
    // Failed attempts on the way to an answer are no news to the host.
    errorCode_ = kNoError;
    errorMessage_.clear();
    return true;
}

void AISession::GetErrorInfo(std::int32_t& code, std::string& message) {
    code = errorCode_;
    message = errorMessage_;
}

std::string AISession::GetSessionText() {
    return sessionText_;
}

bool AISession::Run(Query& query, const std::shared_ptr<CHumanMessage>& message,
                    std::shared_ptr<CLLMMessage>& result) {
    if (!query.manager.IsEnable()) {
        VELTRA_LOG(query.operation, 5, "veltra is not enable");
        CallWatch::NoteFailure(CallOutcome::NotEnabled, kDetailNotEnabled);
        errorCode_ = kNotUsable;
        errorMessage_ = "veltra is not enable";
        return false;
    }
    errorCode_ = kNoError;
    errorMessage_.clear();
    if (!query.manager.IsLLMServiceValid()) {
        VELTRA_LOG(query.operation, 5, "llm service is not can be used");
        CallWatch::NoteFailure(CallOutcome::NotUsable, kDetailNotUsable);
        errorCode_ = kNotUsable;
        errorMessage_ = "llm service is not can be used";
        return false;
    }
    if (!message) {
        VELTRA_LOG(query.operation, 5, "humanmessage ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "no message was given");
        errorCode_ = kNoInputOrToken;
        return false;
    }
    const std::shared_ptr<CHumanMessageIMP> record = message->GetPtrManager();
    if (!record) {
        VELTRA_LOG(query.operation, 5, "humanmessage manager ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "the message was moved from");
        errorCode_ = kNoInputOrToken;
        return false;
    }
    if (!Prepare(query, *record)) return false;
    if (!Send(query)) return false;
    if (Parse(query, result)) return true;

    errorCode_ = boost::algorithm::contains(query.refusal, kSensitiveMark) ? kSensitive : kRefused;
    if (errorCode_ == kSensitive)
        CallWatch::NoteFailure(CallOutcome::ForbiddenWords, "the gateway found a forbidden word");
    if (boost::algorithm::contains(query.refusal, kTokenRejectedMark)) {
        errorCode_ = kNoInputOrToken;
        query.manager.RejectToken(query.tokenGeneration);
        query.manager.checkTokenValidity();
        if (!Send(query)) return false;
        if (Parse(query, result)) return true;
        if (boost::algorithm::contains(query.refusal, kTokenRejectedMark))
            CallWatch::NoteFailure(CallOutcome::TokenRejected,
                                   "the gateway rejected the token, and the renewed one");
    }
    errorMessage_ = query.refusal;
    return false;
}

/// Screens the values and writes the body. No code of the host runs in between: what is screened is
/// what is sent, whatever a log handler does to the record later.
bool AISession::Prepare(Query& query, const CHumanMessageIMP& record) {
    for (const auto& element : record.elements) {
        if (!query.manager.HasSensitiveWords(element.second)) continue;
        VELTRA_LOG(query.operation, 5, "has sensitive words");
        CallWatch::NoteFailure(CallOutcome::Screened, "a value holds a phrase of the list");
        errorMessage_ = "has sensitive words";
        errorCode_ = kSensitive;
        return false;
    }
    if (!record.sessionId.empty()) {
        CallWatch::NoteTraceId(record.sessionId);
        query.body = QueryBody(record, record.sessionId);
        return true;
    }
    const std::string traceId = Oak::Base::GuidUtil::CreateGuid();
    CallWatch::NoteTraceId(traceId);
    query.body = QueryBody(record, traceId);
    VELTRA_LOG(query.operation, 4, "sessionID isempty,set id is:%s", traceId.c_str());
    return true;
}

/// Posts the body with the token of this moment and takes the answer's text.
bool AISession::Send(Query& query) {
    const GatewayAccess access = query.manager.Access();
    query.tokenGeneration = access.tokenGeneration;
    if (access.token.empty()) {
        VELTRA_LOG(query.operation, 5, "get token failed");
        CallWatch::NoteFailure(CallOutcome::NotUsable, kDetailNoToken);
        errorCode_ = kNoInputOrToken;
        return false;
    }
    VELTRA_LOG(query.operation, 2, "request:%s", query.body.c_str());
    auto request = MakeGatewayRequest(access, kQueryPath, std::move(query.body));

    Oak::Net::CHttpClientResponse response;
    const bool sent = SendGatewayCall(query.operation, request, response, kLongExchange);
    query.body = request.TakeData();
    if (!sent) {
        errorCode_ = kNotSent;
        errorMessage_ = "client send message failed";
        return false;
    }
    query.response = response.TakeData();
    VELTRA_LOG(query.operation, 3, "request:%s,http client get response:%s", query.body.c_str(),
               query.response.c_str());
    if (query.response.empty()) {
        VELTRA_LOG(query.operation, 5, "response is empty");
        CallWatch::NoteFailure(CallOutcome::BadAnswer, "the answer is empty");
        errorCode_ = kRefused;
        errorMessage_ = "response is empty";
        return false;
    }
    return true;
}

/// Reads the answer; on a refusal leaves the gateway's explanation in the query.
bool AISession::Parse(Query& query, std::shared_ptr<CLLMMessage>& result) const {
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    if (!document->set_str(query.response)) {
        VELTRA_LOG(query.operation, 4, "set_str failed,rsp:%s", query.response.c_str());
        CallWatch::NoteFailure(CallOutcome::BadAnswer, "the answer is not JSON");
        return false;
    }
    std::string errorCode = document->get_str("/errorCode", "");
    if (errorCode == "0") {
        std::string content = document->get_str("/data/resultStr", "");
        if (content.empty()) {
            VELTRA_LOG(query.operation, 4, "data is empty,http client get response:%s",
                       query.response.c_str());
        }
        CallWatch::NoteGateway(std::move(errorCode), document->get_str("/message", ""));
        result = std::make_shared<AIMessage>(std::move(content));
        return true;
    }
    query.refusal = document->get_str("/message", "");
    NoteRefusal(errorCode, query.refusal);
    VELTRA_LOG(query.operation, 5, "http client get response:%s,errcode:%s", query.refusal.c_str(),
               errorCode.c_str());
    return false;
}

}  // namespace Veltra

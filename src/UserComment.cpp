#include "UserComment.h"

#include "AIManager.h"
#include "Base64.h"
#include "CallWatch.h"
#include "GatewayCall.h"
#include "JsonText.h"
#include "Log.h"
#include "Records.h"

#include <Oak/Base/StandardStreams.h>
#include <proto/CRapidJsonProto.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Veltra {

namespace {

constexpr const char* kFeedbackPath = "/api/tmqgw/aillm/v1/satisfaction/feedback";
constexpr const char* kSlotPath = "/api/tmqgw/aillm/v1/satisfaction/feedback/upload/image";
constexpr const char* kCancelPath = "/api/tmqgw/aillm/v1/satisfaction/feedback/cancel";

constexpr std::size_t kMostSlots = 4;

std::string FeedbackBody(const LLMCommentIMP& feedback, const std::string& clientVersion,
                         const std::vector<UploadSlot>& uploaded) {
    std::string body = "{";
    AppendMember(body, "traceId", feedback.traceId);
    body += ',';
    AppendMember(body, "satisfactionType", static_cast<std::int32_t>(feedback.satisfactionLevel));
    body += ',';
    AppendMember(body, "feedbackType", static_cast<std::int32_t>(feedback.llmErrType));
    body += ',';
    AppendMember(body, "feedbackDescription", feedback.comments);
    body += ',';
    AppendMember(body, "country", feedback.country);
    body += ',';
    AppendMember(body, "clientVersion", clientVersion);
    body += R"(,"feedbackImageKeys":)";
    AppendList(body, '[', ']', uploaded,
               [&body](const UploadSlot& slot) { AppendQuoted(body, slot.first); });
    body += '}';
    return body;
}

std::string SlotBody(const std::string& traceId, std::size_t pictures) {
    std::string body = "{";
    AppendMember(body, "traceId", traceId);
    body += R"(,"uploadImageList":[{)";
    AppendMember(body, "generateNum", static_cast<std::int32_t>(std::min(pictures, kMostSlots)));
    body += ',';
    AppendMember(body, "imageType", "jpg");
    body += "}]}";
    return body;
}

enum class BodyEcho { Unset, On, Off };
std::atomic<BodyEcho> bodyEcho{BodyEcho::Unset};

/// Shows a body on standard output, a line in one write.
void Echo(const std::string& body) {
    if (bodyEcho != BodyEcho::Off) Oak::Base::WriteStandardOutput(body + '\n');
}

/// Loads an answer; one that isn't JSON is the call's failure.
bool ReadOrNoted(proto::CRapidJsonProto& document, std::string&& answer) {
    const bool empty = answer.empty();
    if (document.set_str(std::move(answer))) return true;
    CallWatch::NoteFailure(CallOutcome::BadAnswer,
                           empty ? "the answer is empty" : "the answer is not JSON");
    return false;
}

/// Whether the gateway did as asked; its refusal is the call's failure.
bool SucceededOrNoted(proto::CRapidJsonProto& document) {
    const std::string code = document.get_str("/errorCode", "");
    const std::string message = document.get_str("/message", "");
    if (code == "0")
        CallWatch::NoteGateway(code, message);
    else
        NoteRefusal(code, message);
    return code == "0";
}

std::vector<UploadSlot> ReadSlots(proto::CRapidJsonProto& document) {
    const std::string list = "/data/imageList[1]/uploadInfoList";
    std::vector<UploadSlot> slots;
    const std::int32_t count = document.get_array_size(list);
    for (std::int32_t i = 1; i <= count; ++i) {
        const std::string slot = list + '[' + std::to_string(i) + ']';
        slots.emplace_back(document.get_str(slot + "/imageKey", ""),
                           document.get_str(slot + "/url", ""));
    }
    return slots;
}

/// The slots that the gateway grants, possibly none; nothing when it can't be asked or refuses.
std::optional<std::vector<UploadSlot>> RequestSlots(const char* operation,
                                                    const std::string& traceId,
                                                    std::size_t pictures) {
    const std::string body = SlotBody(traceId, pictures);
    Echo(body);
    std::string answer;
    if (!UserComentManager::SendToCloud(kSlotPath, body, answer)) return std::nullopt;
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    if (!ReadOrNoted(*document, std::move(answer))) return std::nullopt;
    if (!SucceededOrNoted(*document)) {
        VELTRA_LOG(operation, 5, "get S3 URL failed");
        return std::nullopt;
    }
    auto slots = ReadSlots(*document);
    if (slots.empty())
        CallWatch::NoteFailure(CallOutcome::BadAnswer,
                               "the gateway granted no place for a picture");
    return slots;
}

/// The bytes of a picture as a request takes them. The decoder's larger buffer is gone on return.
std::string Decoded(const std::string& picture) {
    const std::vector<unsigned char> bytes = base64_decode(picture);
    return {bytes.begin(), bytes.end()};
}

/// Where gateway calls go now; nothing, and logged, without a token or domain.
std::optional<GatewayAccess> AccessOrLogged(const char* operation) {
    GatewayAccess access = CAIManager::GetInstance()->Access();
    if (access.token.empty() || access.domain.empty()) {
        VELTRA_LOG(operation, 5, "get token failed");
        CallWatch::NoteFailure(CallOutcome::NotUsable, kDetailNoToken);
        return std::nullopt;
    }
    return access;
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool UserComentManager::UpLoadComments(std::shared_ptr<LLMComment> comment,
                                       std::string& feedbackId) {
    VELTRA_OPERATION(operation);
    const std::shared_ptr<LLMCommentIMP> record = comment->GetManagerPtr();
    if (!record) {
        VELTRA_LOG(operation, 5, "humanmessage manager ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "the comment was moved from");
        return false;
    }
    // A copy: the host may change the record once the submission is under way.
    const LLMCommentIMP feedback = *record;
    CallWatch::NoteTraceId(feedback.traceId);
    const std::string clientVersion = CAIManager::GetInstance()->GetProductVersion();

    std::vector<UploadSlot> uploaded;
    if (!UpLoadPics(feedback.traceId, feedback.pictures, uploaded)) {
        VELTRA_LOG(operation, 5, "Upload pic to S3 failed!");
        return false;
    }
    const std::string body = FeedbackBody(feedback, clientVersion, uploaded);
    // Asked before the body is shown; the sender asks again for the values that it uses.
    if (!AccessOrLogged(operation)) return false;
    Echo(body);

    std::string answer;
    if (!SendToCloud(kFeedbackPath, body, answer)) return false;
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    if (!ReadOrNoted(*document, std::move(answer))) return false;
    if (!SucceededOrNoted(*document)) {
        const std::string errorCode = document->get_str("/errorCode", "");
        const std::string message = document->get_str("/message", "");
        VELTRA_LOG(operation, 5, "http client get response:%s,errcode:%s", message.c_str(),
                   errorCode.c_str());
        return false;
    }
    feedbackId = document->get_str("/data/feedbackId", "");
    return true;
}

bool UserComentManager::UpLoadPics(const std::string& traceId,
                                   const std::unordered_set<std::string>& pictures,
                                   std::vector<UploadSlot>& uploaded) {
    /// Puts one picture to a pre-signed URL, once and without credentials: the storage is not the
    /// gateway. A class of this function, so that its records carry a name below this operation's.
    struct PushPicToS3 {
        bool operator()(const std::string& url, std::string&& picture) const {
            VELTRA_OPERATION(operation);
            Oak::Net::CHttpClientRequest request("PUT", Oak::Net::URL(url));
            request.SetData(std::move(picture));
            Oak::Net::CHttpClientResponse response;
            if (!SendOnce(request, response, kLongExchange)) return false;
            if (response.GetStatusCode() != 200) {
                VELTRA_LOG(operation, 5, "Send to S3 failed");
                return false;
            }
            VELTRA_LOG(operation, 3, "Send to S3 success ");
            return true;
        }
    };

    VELTRA_OPERATION(operation);
    if (pictures.empty()) return true;
    const auto slots = RequestSlots(operation, traceId, pictures.size());
    if (!slots) return false;

    std::size_t position = 0;
    for (const std::string& picture : pictures) {
        std::string bytes = Decoded(picture);  // also without a slot: what can't be read is logged
        if (position < slots->size()) {
            const UploadSlot& slot = (*slots)[position];
            if (PushPicToS3()(slot.second, std::move(bytes))) {
                uploaded.push_back(slot);
                VELTRA_LOG(operation, 2, "push pic to s3 suc,the key is %s,the url is %s",
                           slot.first.c_str(), slot.second.c_str());
            }
        }
        ++position;
    }
    VELTRA_LOG(operation, 3, "push %d pic to s3", static_cast<int>(position));
    return !uploaded.empty();
}

bool UserComentManager::CancelComments(const std::string& feedbackId) {
    std::string body = "{";
    AppendMember(body, "feedbackId", feedbackId);
    body += '}';
    std::string answer;
    if (!SendToCloud(kCancelPath, body, answer)) return false;
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    return ReadOrNoted(*document, std::move(answer)) && SucceededOrNoted(*document);
}

void UserComentManager::SetBodyEcho(bool on) {
    bodyEcho = on ? BodyEcho::On : BodyEcho::Off;
}

void UserComentManager::EchoNoBodiesUnlessSet() {
    BodyEcho unset = BodyEcho::Unset;
    bodyEcho.compare_exchange_strong(unset, BodyEcho::Off);
}

bool UserComentManager::SendToCloud(const std::string& path, const std::string& body,
                                    std::string& response) {
    VELTRA_OPERATION(operation);
    const std::optional<GatewayAccess> access = AccessOrLogged(operation);
    if (!access) return false;
    auto request = MakeGatewayRequest(*access, path.c_str(), body);
    Oak::Net::CHttpClientResponse answer;
    return SendGatewayCall(operation, request, answer, kShortExchange) &&
           answer.GetResponseData(&response);
}

}  // namespace Veltra

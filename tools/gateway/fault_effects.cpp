#include "fault_effects.h"

#include "envelope.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kBytesOfHeaders = 20;
constexpr std::string_view kNoise = "\x16\x03\x7f\xff#!$\r\n\x01\x02garbage\r\n\r\n";
constexpr std::string_view kHalfJson = R"({"errorCode":"0","message":"","data":{"resul)";

std::string textOr(const Fault& fault, std::string_view otherwise) {
    return fault.text.empty() ? std::string(otherwise) : fault.text;
}

std::size_t countOf(const Fault& fault) {
    return fault.number > 0 ? static_cast<std::size_t>(fault.number) : 0;
}

// At least the last byte is missing, lest the fault pass unseen.
HttpReply cut(Answer answer, const Fault& fault) {
    HttpReply reply{std::move(answer)};
    if (reply.answer.body.empty()) reply.answer.body = "{}";
    reply.bodyLimit = std::min(countOf(fault), reply.answer.body.size() - 1);
    return reply;
}

}  // namespace

HttpReply replyWith(const Fault& fault, const std::function<Answer()>& ownAnswer, Stage& stage,
                    int relayPort) {
    const auto instead = [&](Ending ending, std::string bytes = {}) {
        stage.sabotage(relayPort, {ending, 0, std::move(bytes)});
        return HttpReply{};
    };
    const auto inBody = [&](Ending ending) {
        stage.sabotage(relayPort, {ending, Sabotage::kAll, {}});
        return cut(ownAnswer(), fault);
    };
    switch (fault.kind) {
        case FaultKind::Delay:
            break;
        case FaultKind::Status:
            return {{fault.number != 0 ? static_cast<int>(fault.number) : 500, fault.text, {}}};
        case FaultKind::Close:
            return instead(Ending::Close);
        case FaultKind::Reset:
            return instead(Ending::Reset);
        case FaultKind::Stall:
            return instead(Ending::Stall);
        case FaultKind::Garbage:
            return instead(Ending::Close, textOr(fault, kNoise));
        case FaultKind::ResetInHeaders:
            stage.sabotage(
                relayPort,
                {Ending::Reset, countOf(fault) != 0 ? countOf(fault) : kBytesOfHeaders, {}});
            return {ownAnswer()};
        case FaultKind::ResetInBody:
            return inBody(Ending::Reset);
        case FaultKind::CutBody:
            return inBody(Ending::Close);
        case FaultKind::StallInBody:
            return inBody(Ending::Stall);
        case FaultKind::BadJson:
            return {{200, textOr(fault, kHalfJson), {}}};
        case FaultKind::EmptyBody:
            return {{200, {}, {}}};
        case FaultKind::RejectToken:
            return {tokenRefusal()};
        case FaultKind::RefuseCode:
            return {refusal(fault.code, fault.text)};
    }
    return {ownAnswer()};
}

bool takesPlaceOfAnswer(const Fault* fault) {
    if (fault == nullptr) return false;
    switch (fault->kind) {
        case FaultKind::Close:
        case FaultKind::Reset:
        case FaultKind::Stall:
        case FaultKind::Garbage:
            return true;
        default:
            return false;
    }
}

}  // namespace gateway

#include "request_kind.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {
namespace {

struct Kind {
    RequestKind kind;
    std::string_view name;
    std::string_view path;
};

constexpr std::array<Kind, 7> kKinds = {{
    {RequestKind::Token, "token", kTokenPath},
    {RequestKind::Query, "query", kQueryPath},
    {RequestKind::Probe, "probe", {}},
    {RequestKind::Slots, "slots", kUploadPath},
    {RequestKind::Feedback, "feedback", kFeedbackPath},
    {RequestKind::Withdrawal, "withdrawal", kCancelPath},
    {RequestKind::Push, "push", {}},
}};

template <typename Matches>
const Kind* find(Matches matches) {
    const auto* found = std::find_if(kKinds.begin(), kKinds.end(), matches);
    return found == kKinds.end() ? nullptr : found;
}

}  // namespace

RequestKind kindOf(const Request& request) {
    const auto path = std::string_view(request.path).substr(0, request.path.find('?'));
    if (request.method == "PUT" && path.substr(0, kStoragePrefix.size()) == kStoragePrefix)
        return RequestKind::Push;
    const auto* found =
        find([&](const Kind& kind) { return !kind.path.empty() && kind.path == path; });
    if (request.method != "POST" || found == nullptr) return RequestKind::Any;
    const bool probes = found->kind == RequestKind::Query && request.bodySize == 0;
    return probes ? RequestKind::Probe : found->kind;
}

std::string_view requestKindName(RequestKind kind) {
    const auto* found = find([&](const Kind& entry) { return entry.kind == kind; });
    return found == nullptr ? std::string_view() : found->name;
}

std::optional<RequestKind> requestKindFrom(std::string_view name) {
    const auto* found = find([&](const Kind& entry) { return entry.name == name; });
    if (found == nullptr) return std::nullopt;
    return found->kind;
}

}  // namespace gateway

#include "faults.h"

#include "request_kind.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace gateway {
namespace {

constexpr std::array<std::pair<FaultKind, std::string_view>, 14> kFaultKinds = {{
    {FaultKind::Status, "status"},
    {FaultKind::Delay, "delay"},
    {FaultKind::Close, "close"},
    {FaultKind::Reset, "reset"},
    {FaultKind::ResetInHeaders, "reset-in-headers"},
    {FaultKind::ResetInBody, "reset-in-body"},
    {FaultKind::CutBody, "cut-body"},
    {FaultKind::Stall, "stall"},
    {FaultKind::StallInBody, "stall-in-body"},
    {FaultKind::Garbage, "garbage"},
    {FaultKind::BadJson, "bad-json"},
    {FaultKind::EmptyBody, "empty-body"},
    {FaultKind::RejectToken, "reject-token"},
    {FaultKind::RefuseCode, "refuse"},
}};

template <typename Integer>
bool readNumber(std::string_view text, Integer& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

bool assign(Fault& fault, std::string_view name, std::string_view value) {
    if (name == "path") return fault.path = value, true;
    if (name == "code") return fault.code = value, true;
    if (name == "number") return readNumber(value, fault.number);
    if (name == "times") return readNumber(value, fault.times);
    if (name == "on") {
        const auto on = requestKindFrom(value);
        fault.on = on.value_or(RequestKind::Any);
        return on.has_value();
    }
    if (name != "kind") return false;
    const auto kind = kindFrom(value);
    fault.kind = kind.value_or(FaultKind::Status);
    return kind.has_value();
}

bool meets(const Fault& fault, const Request& request) {
    if (fault.times == 0) return false;
    if (fault.on != RequestKind::Any && fault.on != kindOf(request)) return false;
    const std::string_view path = request.path;
    const std::string_view wanted = fault.path;
    if (!wanted.empty() && wanted.back() == '$')
        return path.substr(0, path.find('?')) == wanted.substr(0, wanted.size() - 1);
    return path.substr(0, wanted.size()) == wanted;
}

}  // namespace

std::string_view kindName(FaultKind kind) {
    const auto* found = std::find_if(kFaultKinds.begin(), kFaultKinds.end(),
                                     [&](const auto& entry) { return entry.first == kind; });
    return found == kFaultKinds.end() ? std::string_view() : found->second;
}

std::optional<FaultKind> kindFrom(std::string_view name) {
    const auto* found = std::find_if(kFaultKinds.begin(), kFaultKinds.end(),
                                     [&](const auto& entry) { return entry.second == name; });
    if (found == kFaultKinds.end()) return std::nullopt;
    return found->first;
}

std::optional<Fault> parseFault(const std::string& text, std::string& reason) {
    Fault fault;
    bool hasKind = false;
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto equals = rest.find('=');
        const auto name = rest.substr(0, equals);
        const bool isText = name == "text" && equals != rest.npos;
        const auto end = isText ? rest.size() : std::min(rest.find(','), rest.size());
        const auto field = rest.substr(0, end);
        if (isText) {
            fault.text = rest.substr(equals + 1);
        } else if (equals >= end || !assign(fault, name, field.substr(equals + 1))) {
            reason = "cannot read \"" + std::string(field) + "\" in the fault \"" + text + "\"";
            return std::nullopt;
        }
        hasKind = hasKind || name == "kind";
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (!hasKind) {
        reason = "the fault \"" + text + "\" names no kind";
        return std::nullopt;
    }
    return fault;
}

std::uint64_t FaultList::add(Fault fault) {
    const std::scoped_lock lock(mutex_);
    fault.id = ++added_;
    faults_.push_back(std::move(fault));
    return added_;
}

bool FaultList::remove(std::uint64_t id) {
    const std::scoped_lock lock(mutex_);
    return std::erase_if(faults_, [&](const Fault& fault) { return fault.id == id; }) != 0;
}

void FaultList::clear() {
    const std::scoped_lock lock(mutex_);
    faults_.clear();
}

std::vector<Fault> FaultList::all() const {
    const std::scoped_lock lock(mutex_);
    return faults_;
}

std::vector<Fault> FaultList::take(const Request& request) {
    const std::scoped_lock lock(mutex_);
    std::vector<Fault> taken;
    for (auto& fault : faults_) {
        if (!meets(fault, request)) continue;
        if (fault.times > 0) --fault.times;
        taken.push_back(fault);
        if (fault.kind != FaultKind::Delay) break;
    }
    std::erase_if(faults_, [](const Fault& fault) { return fault.times == 0; });
    return taken;
}

}  // namespace gateway

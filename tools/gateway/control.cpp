#include "control.h"

#include "envelope.h"
#include "faults.h"
#include "json.h"
#include "page.h"
#include "record_json.h"
#include "request_kind.h"

#include <charconv>

namespace gateway {
namespace {

constexpr std::string_view kWatch = "watch?since=";
constexpr std::string_view kOneFault = "faults/";
// Of what the page shows: a browser is slow with more.
constexpr std::size_t kMaxWatched = 200;
constexpr std::size_t kMaxWatchedBody = std::size_t{16} << 10;

template <typename Write>
Answer json(Write writeMembers, int status = 200) {
    rapidjson::StringBuffer text;
    JsonWriter writer(text);
    writer.StartObject();
    writeMembers(writer);
    writer.EndObject();
    Answer answer;
    answer.status = status;
    answer.body.assign(text.GetString(), text.GetSize());
    return answer;
}

Answer done() {
    return json([](JsonWriter& writer) { write(writer, "result", "done"); });
}

Answer problem(int status, std::string_view what) {
    return json([&](JsonWriter& writer) { write(writer, "problem", what); }, status);
}

template <typename List, typename WriteEntry>
Answer list(std::string_view name, const List& entries, WriteEntry writeEntry) {
    return json([&](JsonWriter& writer) { writeList(writer, name, entries, writeEntry); });
}

bool readFault(const rapidjson::Value& value, Fault& fault) {
    const auto kind = kindFrom(textMember(value, "kind").value_or(""));
    if (!kind) return false;
    fault.kind = *kind;
    const auto on = textMember(value, "on").value_or("");
    if (!on.empty() && !requestKindFrom(on)) return false;
    fault.on = requestKindFrom(on).value_or(RequestKind::Any);
    fault.path = textMember(value, "path").value_or("");
    fault.code = textMember(value, "code").value_or("");
    fault.text = textMember(value, "text").value_or("");
    const auto* number = member(value, "number");
    const auto* times = member(value, "times");
    if (number != nullptr && !number->IsInt64()) return false;
    if (times != nullptr && !times->IsInt()) return false;
    if (number != nullptr) fault.number = number->GetInt64();
    if (times != nullptr) fault.times = times->GetInt();
    return true;
}

Answer addFault(Gateway& gateway, const std::string& body) {
    Fault fault;
    if (!readFault(parseJson(body), fault))
        return problem(
            400,
            "needs a known \"kind\", and \"on\" if any; \"number\" and \"times\" are integers");
    const auto id = gateway.addFault(std::move(fault));
    return json([&](JsonWriter& writer) {
        write(writer, "result", "done");
        write(writer, "id");
        writer.Uint64(id);
    });
}

std::optional<std::uint64_t> numberIn(std::string_view text) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

Answer removeFault(Gateway& gateway, std::string_view id) {
    const auto number = numberIn(id);
    if (number && gateway.removeFault(*number)) return done();
    return problem(404, "no such fault");
}

void writeState(JsonWriter& writer, const Gateway& gateway) {
    write(writer, "baseUrl", gateway.baseUrl());
    write(writer, "startedMs");
    writer.Int64(sinceEpochMs(gateway.startTime()));
    write(writer, "connections");
    writer.Uint64(gateway.connections());
    write(writer, "stalled");
    writer.Uint64(gateway.stalled());
    write(writer, "tokensIssued");
    writer.Uint64(gateway.tokensIssued());
    const auto model = gateway.modelName();
    if (!model.empty()) write(writer, "model", model);
}

Answer state(const Gateway& gateway) {
    return json([&](JsonWriter& writer) { writeState(writer, gateway); });
}

Answer watch(const Gateway& gateway, std::string_view since) {
    const auto revision = numberIn(since);
    if (!revision) return problem(400, "\"since\" must be a number");
    const auto exchanges = gateway.exchanges(*revision, kMaxWatched, kMaxWatchedBody);
    return json([&](JsonWriter& writer) {
        writeState(writer, gateway);
        write(writer, "revision");
        writer.Uint64(exchanges.revision);
        write(writer, "oldest");
        writer.Uint64(exchanges.oldest);
        writeList(writer, "faults", gateway.faults(), writeFault);
        writeList(writer, "exchanges", exchanges.changed, writeExchange);
    });
}

// For browsers: an answer is this page's alone, and never anything but what it says it is.
void protect(Answer& answer) {
    answer.headers.insert(answer.headers.end(), {{"Cache-Control", "no-store"},
                                                 {"Cross-Origin-Resource-Policy", "same-origin"},
                                                 {"Referrer-Policy", "no-referrer"},
                                                 {"X-Content-Type-Options", "nosniff"}});
}

bool beginsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

Answer answerOf(Gateway& gateway, const Request& request) {
    if (request.method == "GET") {
        if (auto file = pageFile(request.path)) return std::move(*file);
    }
    const std::string_view path = std::string_view(request.path).substr(kControlPrefix.size());
    if (request.method == "GET" && beginsWith(path, kWatch))
        return watch(gateway, path.substr(kWatch.size()));
    if (request.method == "DELETE" && beginsWith(path, kOneFault))
        return removeFault(gateway, path.substr(kOneFault.size()));
    const std::string what = request.method + ' ' + std::string(path);
    if (what == "GET state") return state(gateway);
    if (what == "GET requests") return list("requests", gateway.requests(), writeRequest);
    if (what == "DELETE requests") return gateway.clearRequests(), done();
    if (what == "GET feedback") return list("feedback", gateway.feedback(), writeFeedback);
    if (what == "GET pictures") return list("pictures", gateway.pictures(), writePicture);
    if (what == "GET faults") return list("faults", gateway.faults(), writeFault);
    if (what == "POST faults") return addFault(gateway, request.body);
    if (what == "DELETE faults") return gateway.clearFaults(), done();
    if (what == "POST expire-tokens") return gateway.expireTokens(), done();
    if (isStopRequest(request.method, request.path)) return done();
    return problem(404, "no such control endpoint");
}

}  // namespace

bool isForControl(const Request& request) {
    return beginsWith(request.path, kControlPrefix) ||
           (request.method == "GET" && request.path == "/");
}

Answer controlRefusal() {
    auto answer = refusal("403000",
                          "the control endpoints and the page answer only to this machine, under "
                          "localhost or a loopback address, and to no page from elsewhere",
                          403);
    protect(answer);
    return answer;
}

Answer control(Gateway& gateway, const Request& request) {
    auto answer = answerOf(gateway, request);
    protect(answer);
    return answer;
}

bool isStopRequest(std::string_view method, std::string_view path) {
    return method == "POST" && path == "/control/stop";
}

}  // namespace gateway

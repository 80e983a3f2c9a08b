#include "control.h"

#include "faults.h"
#include "json.h"

#include <array>
#include <limits>

namespace gateway {
namespace {

constexpr std::size_t kMaxShownBytes = 1024;  // of a body that isn't text

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
    return json([&](JsonWriter& writer) {
        write(writer, name);
        writer.StartArray();
        for (const auto& entry : entries) {
            writer.StartObject();
            writeEntry(writer, entry);
            writer.EndObject();
        }
        writer.EndArray();
    });
}

void writeRequest(JsonWriter& writer, const Request& request) {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    write(writer, "number");
    writer.Uint64(request.number);
    write(writer, "connection");
    writer.Uint64(request.connection);
    write(writer, "timeMs");
    writer.Int64(duration_cast<milliseconds>(request.time.time_since_epoch()).count());
    write(writer, "method", showable(request.method));
    write(writer, "path", showable(request.path));
    write(writer, "headers");
    writer.StartArray();
    for (const auto& [name, value] : request.headers) {
        writer.StartArray();
        write(writer, showable(name));
        write(writer, showable(value));
        writer.EndArray();
    }
    writer.EndArray();
    write(writer, "bodySize");
    writer.Uint64(request.bodySize);
    write(writer, "body", showable(request.body, kMaxShownBytes));
}

void writeFault(JsonWriter& writer, const Fault& fault) {
    write(writer, "path", showable(fault.path));
    write(writer, "kind", kindName(fault.kind));
    write(writer, "number");
    writer.Int64(fault.number);
    write(writer, "code", showable(fault.code));
    write(writer, "text", showable(fault.text));
    write(writer, "times");
    writer.Int(fault.times);
}

void writeFeedback(JsonWriter& writer, const Feedback& feedback) {
    write(writer, "feedbackId", feedback.id);
    write(writer, "traceId", feedback.traceId);
    write(writer, "satisfactionType");
    writer.Int(feedback.satisfactionType);
    write(writer, "feedbackType");
    writer.Int(feedback.feedbackType);
    write(writer, "feedbackDescription", feedback.description);
    write(writer, "country", feedback.country);
    write(writer, "clientVersion", feedback.clientVersion);
    write(writer, "feedbackImageKeys");
    writer.StartArray();
    for (const auto& key : feedback.imageKeys)
        write(writer, key);
    writer.EndArray();
    write(writer, "withdrawn");
    writer.Bool(feedback.withdrawn);
}

void writePicture(JsonWriter& writer, const Picture& picture) {
    write(writer, "imageKey", picture.imageKey);
    write(writer, "size");
    writer.Uint64(picture.size);
    write(writer, "sha256", picture.sha256);
}

bool readFault(const rapidjson::Value& value, Fault& fault) {
    const auto kind = kindFrom(textMember(value, "kind").value_or(""));
    if (!kind) return false;
    fault.kind = *kind;
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
        return problem(400, "needs a known \"kind\"; \"number\" and \"times\" are integers");
    gateway.addFault(std::move(fault));
    return done();
}

Answer state(const Gateway& gateway) {
    return json([&](JsonWriter& writer) {
        write(writer, "baseUrl", gateway.baseUrl());
        write(writer, "connections");
        writer.Uint64(gateway.connections());
        write(writer, "stalled");
        writer.Uint64(gateway.stalled());
        write(writer, "tokensIssued");
        writer.Uint64(gateway.tokensIssued());
    });
}

}  // namespace

Answer control(Gateway& gateway, const Request& request) {
    const std::string what = request.method + ' ' + request.path.substr(kControlPrefix.size());
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

bool isStopRequest(std::string_view method, std::string_view path) {
    return method == "POST" && path == "/control/stop";
}

}  // namespace gateway

#include "control.h"

#include "envelope.h"
#include "faults.h"
#include "hex.h"
#include "json.h"
#include "page.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace gateway {
namespace {

constexpr std::size_t kMaxShownBytes = 1024;  // of a body that isn't text
constexpr std::string_view kWatch = "watch?since=";
constexpr std::string_view kOneFault = "faults/";
// Of what the page shows: a browser is slow with more.
constexpr std::size_t kMaxWatched = 200;
constexpr std::size_t kMaxWatchedBody = std::size_t{16} << 10;
constexpr std::size_t kMaxWatchedHex = 64;

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
void writeList(JsonWriter& writer, std::string_view name, const List& entries,
               WriteEntry writeEntry) {
    write(writer, name);
    writer.StartArray();
    for (const auto& entry : entries) {
        writer.StartObject();
        writeEntry(writer, entry);
        writer.EndObject();
    }
    writer.EndArray();
}

template <typename List, typename WriteEntry>
Answer list(std::string_view name, const List& entries, WriteEntry writeEntry) {
    return json([&](JsonWriter& writer) { writeList(writer, name, entries, writeEntry); });
}

std::int64_t sinceEpochMs(std::chrono::system_clock::time_point time) {
    using std::chrono::milliseconds;
    return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
}

void writeHeaders(JsonWriter& writer, const Headers& headers) {
    write(writer, "headers");
    writer.StartArray();
    for (const auto& [name, value] : headers) {
        writer.StartArray();
        write(writer, showable(name));
        write(writer, showable(value));
        writer.EndArray();
    }
    writer.EndArray();
}

// All of a request but its body.
void writeHead(JsonWriter& writer, const Request& request) {
    write(writer, "number");
    writer.Uint64(request.number);
    write(writer, "connection");
    writer.Uint64(request.connection);
    write(writer, "timeMs");
    writer.Int64(sinceEpochMs(request.time));
    write(writer, "method", showable(request.method));
    write(writer, "path", showable(request.path));
    writeHeaders(writer, request.headers);
}

void writeRequest(JsonWriter& writer, const Request& request) {
    writeHead(writer, request);
    write(writer, "bodySize");
    writer.Uint64(request.bodySize);
    write(writer, "body", showable(request.body, kMaxShownBytes));
}

void writeFault(JsonWriter& writer, const Fault& fault) {
    write(writer, "id");
    writer.Uint64(fault.id);
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
}

Answer state(const Gateway& gateway) {
    return json([&](JsonWriter& writer) { writeState(writer, gateway); });
}

// As text, or the first bytes in hexadecimal digits.
void writeBody(JsonWriter& writer, const char* name, const std::string& body, std::size_t size) {
    write(writer, name);
    writer.StartObject();
    write(writer, "size");
    writer.Uint64(size);
    const auto text = readableText(body, body.size() < size);
    if (text) {
        write(writer, "shown");
        writer.Uint64(text->size());
        write(writer, "text", *text);
    } else {
        const auto shown = std::min(body.size(), kMaxWatchedHex);
        write(writer, "shown");
        writer.Uint64(shown);
        const std::vector<unsigned char> bytes(body.begin(),
                                               body.begin() + static_cast<std::ptrdiff_t>(shown));
        write(writer, "hex", toHex(bytes));
    }
    writer.EndObject();
}

void writeAnswer(JsonWriter& writer, const Exchange& exchange) {
    write(writer, "answer");
    writer.StartObject();
    write(writer, "status");
    writer.Int(exchange.answer->status);
    writeHeaders(writer, exchange.answer->headers);
    write(writer, "sent");
    writer.Uint64(exchange.answerSent);
    writeBody(writer, "body", exchange.answer->body, exchange.answerSize);
    writer.EndObject();
}

void writeExchange(JsonWriter& writer, const Exchange& exchange) {
    writeHead(writer, exchange.request);
    writeBody(writer, "body", exchange.request.body, exchange.request.bodySize);
    writeList(writer, "faults", exchange.faults, writeFault);
    if (exchange.took) {
        write(writer, "tookMs");
        writer.Int64(exchange.took->count());
    }
    if (exchange.answer) writeAnswer(writer, exchange);
}

Answer watch(const Gateway& gateway, std::string_view since) {
    const auto revision = numberIn(since);
    if (!revision) return problem(400, "\"since\" is a number");
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

#include "record_json.h"

#include "faults.h"
#include "hex.h"
#include "request_kind.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr std::size_t kMaxShownBytes = 1024;  // of a body that isn't text
constexpr std::size_t kMaxShownHex = 64;

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
        const auto shown = std::min(body.size(), kMaxShownHex);
        write(writer, "shown");
        writer.Uint64(shown);
        const std::vector<unsigned char> bytes(body.begin(),
                                               body.begin() + static_cast<std::ptrdiff_t>(shown));
        write(writer, "hex", toHex(bytes));
    }
    writer.EndObject();
}

void writeModelCall(JsonWriter& writer, const ModelCall& call) {
    write(writer, "model");
    writer.StartObject();
    write(writer, "name", call.model);
    writeBody(writer, "prompt", call.prompt, call.promptSize);
    writeBody(writer, "answer", call.answer, call.answerSize);
    write(writer, "tookMs");
    writer.Int64(call.took.count());
    for (const auto& [name, count] : {std::pair("promptTokens", call.promptTokens),
                                      std::pair("answerTokens", call.answerTokens)}) {
        if (!count) continue;
        write(writer, name);
        writer.Int64(*count);
    }
    write(writer, "stoppedByLength");
    writer.Bool(call.stoppedByLength);
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

}  // namespace

std::int64_t sinceEpochMs(std::chrono::system_clock::time_point time) {
    using std::chrono::milliseconds;
    return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
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
    write(writer, "on", requestKindName(fault.on));
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

void writeExchange(JsonWriter& writer, const Exchange& exchange) {
    writeHead(writer, exchange.request);
    write(writer, "on", requestKindName(kindOf(exchange.request)));
    writeBody(writer, "body", exchange.request.body, exchange.request.bodySize);
    writeList(writer, "faults", exchange.faults, writeFault);
    if (exchange.took) {
        write(writer, "tookMs");
        writer.Int64(exchange.took->count());
    }
    if (!exchange.answer) return;
    writeAnswer(writer, exchange);
    if (!exchange.answer->traceId.empty()) write(writer, "traceId", exchange.answer->traceId);
    if (exchange.answer->model) writeModelCall(writer, *exchange.answer->model);
}

}  // namespace gateway

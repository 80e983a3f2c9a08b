#include "http_rules.h"

#include <qlog/qlog_write.h>

#include <algorithm>
#include <cstdio>

namespace Oak::Net {
namespace {

/// The client frames the message; a second statement on its length would let one request be read
/// as two.
bool FramesMessage(std::string_view name) {
    return SameName(name, "Content-Length") || SameName(name, "Transfer-Encoding");
}

/// As records and pages name it.
const char* NameOf(FailureReason reason) {
    switch (reason) {
        case FailureReason::notReached:
            return "could not connect";
        case FailureReason::notTrusted:
            return "certificate";
        case FailureReason::timeOut:
            return "time-out";
        case FailureReason::cutOff:
            return "cut off";
        case FailureReason::tooLarge:
        case FailureReason::noMemory:
            return "limit";
        case FailureReason::refusedUrl:
            return "refused URL";
        case FailureReason::refusedRequest:
            return "refused header";
        case FailureReason::cancelled:
            return "cancelled";
        case FailureReason::ended:
            return "ended";
        default:
            return "other";
    }
}

const char* WordsOf(const Failure& failure, const Telling& telling) {
    return telling.words.empty() ? failure.detail : telling.words.c_str();
}

}  // namespace

bool IsToken(std::string_view text) {
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [marks](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               marks.find(c) != std::string_view::npos;
    });
}

bool SameName(std::string_view left, std::string_view right) {
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [lower](char a, char b) { return lower(a) == lower(b); });
}

bool MayBeSent(std::string_view name, std::string_view value) {
    return IsToken(name) && !FramesMessage(name) &&
           std::none_of(value.begin(), value.end(),
                        [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

HttpClientOptions WithDefaultsForZero(HttpClientOptions options) {
    const HttpClientOptions standard;
    if (options.connectTimeoutMs == 0) options.connectTimeoutMs = standard.connectTimeoutMs;
    if (options.totalTimeoutMs == 0) options.totalTimeoutMs = standard.totalTimeoutMs;
    if (options.maxResponseBytes == 0) options.maxResponseBytes = standard.maxResponseBytes;
    return options;
}

std::string Printable(const char* words) {
    std::string text = words;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, ' ');
    return text;
}

void Describe(const Failure& failure, const Telling& telling, HttpClient::Error* error) {
    if (error == nullptr) return;
    error->code = failure.code;
    error->reason = failure.reason;
    // Cut where the room ends, as the record's owner expects.
    static_cast<void>(std::snprintf(error->text, sizeof error->text, "%s: %s",
                                    NameOf(failure.reason), WordsOf(failure, telling)));
}

/// Method and target are shown only once they were found harmless.
void Report(const Failure& failure, const Telling& telling, const std::string& method) {
    qlog_write(4, "Oak", "HTTP exchange failed, %s: %s [%s %s]", NameOf(failure.reason),
               WordsOf(failure, telling), IsToken(method) ? method.c_str() : "-",
               telling.target.empty() ? "-" : telling.target.c_str());
}

}  // namespace Oak::Net

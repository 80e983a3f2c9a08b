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

void Describe(const Failure& failure, HttpClient::Error* error) {
    if (error == nullptr) return;
    error->code = failure.code;
    // Cut where the room ends, as the record's owner expects.
    static_cast<void>(
        std::snprintf(error->text, sizeof error->text, "%s: %s", failure.reason, failure.detail));
}

/// Method and target are shown only once they were found harmless.
void Report(const Failure& failure, const std::string& method, const std::string& target) {
    qlog_write(4, "Oak", "HTTP exchange failed, %s: %s [%s %s]", failure.reason, failure.detail,
               IsToken(method) ? method.c_str() : "-", target.empty() ? "-" : target.c_str());
}

}  // namespace Oak::Net

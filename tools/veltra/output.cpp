#include "output.h"

#include "call_outcome.h"
#include "process.h"
#include "secrets.h"

#include <Veltra/JsonText.h>
#include <Veltra/veltra_c.h>

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <optional>
#include <utility>

namespace tool {

namespace {

rapidjson::SizeType jsonSize(std::string_view text) {
    return static_cast<rapidjson::SizeType>(text.size());
}

bool isAsciiControl(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == '\x7F';
}

// The second byte of U+0080 to U+009F, which terminals obey as they do those below U+0020.
bool endsUpperControl(std::string_view text, std::size_t at) {
    return at > 0 && text[at - 1] == '\xC2' && static_cast<unsigned char>(text[at]) >= 0x80 &&
           static_cast<unsigned char>(text[at]) < 0xA0;
}

void appendEscape(std::string& shown, char byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    if (byte == '\n') {
        shown += "\\n";
        return;
    }
    const auto value = static_cast<unsigned char>(byte);
    shown += {'\\', 'x', kDigits[value >> 4], kDigits[value & 0xF]};
}

std::string shownExcept(std::string_view text, std::string_view harmless) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (endsUpperControl(text, i)) {
            shown.pop_back();
            appendEscape(shown, text[i - 1]);
            appendEscape(shown, text[i]);
        } else if (isAsciiControl(text[i]) && harmless.find(text[i]) == harmless.npos) {
            appendEscape(shown, text[i]);
        } else {
            shown += text[i];
        }
    }
    return shown;
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

std::string repaired(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        rapidjson::MemoryStream stream(text.data(), text.size());
        unsigned codePoint = 0;
        const bool isCharacter = rapidjson::UTF8<>::Decode(stream, &codePoint);
        const std::size_t length = isCharacter ? stream.Tell() : 1;
        valid += isCharacter ? text.substr(0, length) : kReplacement;
        text.remove_prefix(length);
    }
    return valid;
}

/// What the two kinds of lines on standard error know of each other.
struct ErrorLines {
    std::mutex mutex;
    std::size_t progressWidth = 0;  // of the progress line that is shown

    /// What takes the progress line away, on terminals of any kind.
    std::string eraser() {
        if (progressWidth == 0) return {};
        return '\r' + std::string(std::exchange(progressWidth, 0), ' ') + '\r';
    }
};

ErrorLines& errorLines() {
    static ErrorLines lines;
    return lines;
}

// One piece, so that the lines of several threads don't mix. Past the stream itself, which would
// hand on standard output first, whatever another thread does with that.
void writeError(const std::string& text) {
    auto& buffer = *std::cerr.rdbuf();
    buffer.sputn(text.data(), static_cast<std::streamsize>(text.size()));
    buffer.pubsync();
}

/// Whether standard output was lost because nobody reads it any more; nothing unless it was lost.
std::optional<bool>& outputLoss() {
    static std::optional<bool> loss;
    return loss;
}

void writeOutput(std::string_view text) {
    errno = 0;
    std::cout << text << std::flush;
    if (!std::cout && !outputLoss()) outputLoss() = readerIsGone();
}

}  // namespace

// Repaired it would be another text than the one given.
void requireUtf8(std::string_view text, const std::string& name) {
    if (repaired(text) != text) throw UsageError(name + " is not valid UTF-8");
}

std::string jsonEscaped(std::string_view text, const std::string& name) {
    requireUtf8(text, name);
    return Veltra::EscapeJson(std::string(text));
}

std::string printable(std::string_view text) {
    return shownExcept(text, "");
}

void printLine(std::string_view text) {
    writeOutput(std::string(text) + '\n');
}

bool outputIsLost() {
    return !std::cout;
}

void printAnswer(std::string_view text) {
    printLine(outputGoesToTerminal() ? shownExcept(text, "\n\t") : std::string(text));
}

void complain(std::string_view text) {
    const std::string line = printable(text) + '\n';
    auto& lines = errorLines();
    const std::scoped_lock lock(lines.mutex);
    writeError(lines.eraser() + line);
}

void note(std::string_view text) {
    if (errorGoesToTerminal()) complain(text);
}

ProgressLine::~ProgressLine() {
    auto& lines = errorLines();
    const std::scoped_lock lock(lines.mutex);
    writeError(lines.eraser());
}

void ProgressLine::show(const std::string& text) {
    if (!errorGoesToTerminal()) return;
    auto& lines = errorLines();
    const std::scoped_lock lock(lines.mutex);
    const std::string eraser = lines.eraser();
    lines.progressWidth = text.size();
    writeError(eraser + text);
}

void JsonWriter::text(std::string_view value) {
    const std::string valid = repaired(value);
    writer_.String(valid.data(), jsonSize(valid));
}

void JsonWriter::failure(const Failure& failure) {
    member("code", failure.code);
    member("message", withoutSecrets(failure.what()));
    if (failure.report) report(*failure.report);
}

void JsonWriter::report(const Veltra::CCallReport& report) {
    member("outcome", veltra_outcome_name(static_cast<veltra_outcome>(report.Outcome())));
    member("detail", withoutSecrets(reasonOf(report)));
    member("attempts", report.Attempts());
    member("httpStatus", report.HttpStatus());
}

void JsonWriter::member(std::string_view memberName, std::string_view value) {
    name(memberName);
    text(value);
}

void JsonWriter::member(std::string_view memberName, const char* value) {
    member(memberName, std::string_view(value));
}

void JsonWriter::member(std::string_view memberName, std::int32_t value) {
    name(memberName);
    writer_.Int(value);
}

void JsonWriter::member(std::string_view memberName, std::uint64_t value) {
    name(memberName);
    writer_.Uint64(value);
}

void JsonWriter::member(std::string_view memberName, double value) {
    constexpr double kThousand = 1000;
    name(memberName);
    writer_.Double(std::round(value * kThousand) / kThousand);
}

void JsonWriter::member(std::string_view memberName, bool value) {
    name(memberName);
    writer_.Bool(value);
}

void printJson(bool ok, const std::function<void(JsonWriter&)>& writeMembers) {
    JsonWriter writer;
    writer.beginObject();
    writer.member("ok", ok);
    writeMembers(writer);
    writer.endObject();
    printLine(writer.written());
}

void reportFailure(bool json, const Failure& failure) {
    if (json) {
        printJson(false, [&](JsonWriter& writer) { writer.failure(failure); });
        return;
    }
    std::string line = failure.code != 0 ? "refused: code " + std::to_string(failure.code) + ": "
                                         : std::string("failed: ");
    line += failure.what();
    if (failure.report) line += ": " + reasonOf(*failure.report, failure.what());
    complain(withoutSecrets(std::move(line)));
}

bool finishOutput() {
    writeOutput("");
    if (std::cout && std::ferror(stdout) == 0) return true;
    if (outputLoss().value_or(false)) return false;
    complain("veltra: cannot write to standard output");
    return false;
}

}  // namespace tool

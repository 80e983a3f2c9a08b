#include "output.h"

#include "process_posix.h"

#include <cstdio>
#include <iostream>

namespace tool {

namespace {

using ValidatingWriter =
    rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                      rapidjson::CrtAllocator, rapidjson::kWriteValidateEncodingFlag>;

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

}  // namespace

std::string jsonEscaped(std::string_view text, const std::string& name) {
    rapidjson::StringBuffer buffer;
    ValidatingWriter writer(buffer);
    if (!writer.String(text.data(), jsonSize(text))) throw UsageError(name + " is not valid UTF-8");
    const std::string_view quoted(buffer.GetString(), buffer.GetSize());
    return std::string(quoted.substr(1, quoted.size() - 2));
}

std::string printable(std::string_view text) {
    return shownExcept(text, "");
}

void printLine(std::string_view text) {
    std::cout << text << '\n' << std::flush;
}

void printAnswer(std::string_view text) {
    printLine(outputGoesToTerminal() ? shownExcept(text, "\n\t") : std::string(text));
}

void complain(std::string_view text) {
    // One piece, so that the lines of several threads don't mix.
    const std::string line = printable(text) + '\n';
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

void note(std::string_view text) {
    if (errorGoesToTerminal()) complain(text);
}

void JsonWriter::text(std::string_view value) {
    writer_.String(value.data(), jsonSize(value));
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
        printJson(false, [&](JsonWriter& writer) {
            writer.member("code", failure.code);
            writer.member("message", failure.what());
        });
    } else if (failure.code != 0) {
        complain("refused: code " + std::to_string(failure.code) + ": " + failure.what());
    } else {
        complain(std::string("failed: ") + failure.what());
    }
}

bool finishOutput() {
    std::cout.flush();
    if (std::cout && std::ferror(stdout) == 0) return true;
    complain("veltra: cannot write to standard output");
    return false;
}

}  // namespace tool

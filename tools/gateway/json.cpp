#include "json.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include <algorithm>

namespace gateway {
namespace {

struct NoOutput {
    void Put(char) {}
};

rapidjson::Document parse(const std::string& text) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(
        text.data(), text.size());
    return document;
}

}  // namespace

rapidjson::Document parseJson(const std::string& text) {
    auto document = parse(text);
    if (document.HasParseError()) document.SetNull();
    return document;
}

std::string placeOfJsonError(const std::string& text) {
    const auto document = parse(text);
    const auto end = document.HasParseError() ? document.GetErrorOffset() : text.size();
    const auto whole = std::string_view(text).substr(0, end);
    return "line " + std::to_string(1 + std::count(whole.begin(), whole.end(), '\n'));
}

const rapidjson::Value* member(const rapidjson::Value& value, const char* name) {
    if (!value.IsObject()) return nullptr;
    const auto found = value.FindMember(name);
    return found == value.MemberEnd() ? nullptr : &found->value;
}

std::optional<std::string> textMember(const rapidjson::Value& value, const char* name) {
    const auto* found = member(value, name);
    if (found == nullptr || !found->IsString()) return std::nullopt;
    return std::string(found->GetString(), found->GetStringLength());
}

void write(JsonWriter& writer, std::string_view text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void write(JsonWriter& writer, std::string_view name, std::string_view text) {
    write(writer, name);
    write(writer, text);
}

bool isUtf8(const std::string& text) {
    rapidjson::MemoryStream in(text.data(), text.size());
    NoOutput out;
    while (in.Tell() < text.size())
        if (!rapidjson::UTF8<>::Validate(in, out)) return false;
    return in.Tell() == text.size();
}

std::optional<std::string> readableText(const std::string& bytes, bool isCut) {
    if (bytes.find('\0') != bytes.npos) return std::nullopt;
    // Up to three bytes of a character of four.
    const auto mayDrop = std::min<std::size_t>(isCut ? 3 : 0, bytes.size());
    for (std::size_t dropped = 0; dropped <= mayDrop; ++dropped) {
        auto text = bytes.substr(0, bytes.size() - dropped);
        if (isUtf8(text)) return text;
    }
    return std::nullopt;
}

std::string showable(const std::string& text, std::size_t limit) {
    if (isUtf8(text)) return text;
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string shown;
    for (const char c : std::string_view(text).substr(0, limit)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            shown += c;
        } else {
            shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return shown;
}

}  // namespace gateway

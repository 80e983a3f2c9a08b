#pragma once

// Before its first allocation the library's stack computes an end from a null pointer. That is
// harmless, but stops a run under the sanitizer.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

/// A null value when the text is not JSON in UTF-8. However deep the nesting, the stack stays flat.
rapidjson::Document parseJson(const std::string& text);

/// "line N", the one where a text stops being JSON in UTF-8; its last one if it never does.
std::string placeOfJsonError(const std::string& text);

/// Null when the value is not an object or has no such member.
const rapidjson::Value* member(const rapidjson::Value& value, const char* name);
std::optional<std::string> textMember(const rapidjson::Value& value, const char* name);

void write(JsonWriter& writer, std::string_view text);
void write(JsonWriter& writer, std::string_view name, std::string_view text);
bool isUtf8(const std::string& text);
/// Nothing when it isn't UTF-8, or holds a NUL and so is hardly meant to be read. Of text that was
/// cut, a part of a character at its end is left out.
std::optional<std::string> readableText(const std::string& bytes, bool isCut);
/// The text; or, when it isn't UTF-8, up to so many of its bytes, those above 127 written as \xHH.
std::string showable(const std::string& text, std::size_t limit = std::string::npos);

}  // namespace gateway

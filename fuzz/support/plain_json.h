#ifndef VELTRA_FUZZ_SUPPORT_PLAIN_JSON_H
#define VELTRA_FUZZ_SUPPORT_PLAIN_JSON_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A second reader of JSON, written for being obviously right: plain recursion over the grammar,
/// copies everywhere. The library's document must agree with it on every text and path.

namespace fuzz {

struct Json {
    enum class Kind { text, array, object, other };

    Kind kind = Kind::other;
    std::string text;                ///< a string's characters, or a number as written
    std::vector<std::string> names;  ///< of an object's items
    std::vector<Json> items;
};

/// The value that the whole text is; nothing unless it is one value in valid UTF-8. It recurses
/// with the depth of the text.
std::optional<Json> ReadJson(std::string_view text);

/// What a path such as "/data/list[1]/url" names; null when it names nothing, or there is no root.
const Json* Find(const std::optional<Json>& root, std::string_view path);

/// What `get_str` and `get_array_size` must give.
std::string TextAt(const std::optional<Json>& root, std::string_view path,
                   const std::string& defaultText = "");
std::size_t SizeAt(const std::optional<Json>& root, std::string_view path);

}  // namespace fuzz

#endif

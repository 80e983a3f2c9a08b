#ifndef VELTRA_SRC_JSONTEXT_H
#define VELTRA_SRC_JSONTEXT_H

#include <cstdint>
#include <string>
#include <string_view>

/// Request bodies are written by concatenation: members in a fixed order, no whitespace, and texts
/// exactly as the host gave them. The gateway takes them so; escaping would change what it sees.

namespace Veltra {

/// Appends a text between double quotes.
inline void AppendQuoted(std::string& body, std::string_view text) {
    body += '"';
    body += text;
    body += '"';
}

/// Appends `"name":"value"`.
inline void AppendMember(std::string& body, std::string_view name, std::string_view value) {
    AppendQuoted(body, name);
    body += ':';
    AppendQuoted(body, value);
}

/// Appends `"name":number`.
inline void AppendMember(std::string& body, std::string_view name, std::int32_t number) {
    AppendQuoted(body, name);
    body += ':';
    body += std::to_string(number);
}

/// Appends the items of a range between `open` and `close`, with commas between them; `append`
/// writes one item.
template <class Range, class Append>
void AppendList(std::string& body, char open, char close, const Range& range, Append append) {
    body += open;
    bool first = true;
    for (const auto& item : range) {
        if (!first) body += ',';
        first = false;
        append(item);
    }
    body += close;
}

}  // namespace Veltra

#endif

#include "support/plain_json.h"

#include "support/fuzz_support.h"

#include <algorithm>
#include <cstdint>

namespace fuzz {

namespace {

bool IsDigit(char c) {
    return '0' <= c && c <= '9';
}

void AppendUtf8(std::string& text, std::uint32_t point) {
    const auto tail = [&text, point](int shift) {
        text += static_cast<char>(0x80U | (point >> shift & 0x3FU));
    };
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += static_cast<char>(0xC0U | point >> 6);
        tail(0);
    } else if (point < 0x10000) {
        text += static_cast<char>(0xE0U | point >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | point >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

class Reader {
 public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool Document(Json& root) { return Value(root) && Skip() && rest_.empty(); }

 private:
    bool Skip() {
        while (!rest_.empty() && std::string_view(" \t\r\n").find(rest_[0]) != rest_.npos)
            rest_.remove_prefix(1);
        return true;
    }

    bool Take(std::string_view word) {
        if (rest_.substr(0, word.size()) != word) return false;
        rest_.remove_prefix(word.size());
        return true;
    }

    bool Value(Json& value) {
        Skip();
        if (Take("{")) return Items(value, Json::Kind::object, "}");
        if (Take("[")) return Items(value, Json::Kind::array, "]");
        if (Take("true") || Take("false") || Take("null")) return true;
        value.kind = Json::Kind::text;
        return Next("\"") ? String(value.text) : Number(value.text);
    }

    bool Items(Json& value, Json::Kind kind, std::string_view close) {
        value.kind = kind;
        Skip();
        if (Take(close)) return true;
        do {
            Skip();
            if (kind == Json::Kind::object &&
                !(String(value.names.emplace_back()) && Skip() && Take(":")))
                return false;
            if (!Value(value.items.emplace_back())) return false;
            Skip();
        } while (Take(","));
        return Take(close);
    }

    bool Digits(std::string& text) {
        const std::size_t before = text.size();
        while (!rest_.empty() && IsDigit(rest_[0]))
            MoveOne(text);
        return text.size() > before;
    }

    void MoveOne(std::string& text) {
        text += rest_[0];
        rest_.remove_prefix(1);
    }

    bool Next(std::string_view choices) const {
        return !rest_.empty() && choices.find(rest_[0]) != choices.npos;
    }

    bool Number(std::string& text) {
        if (Next("-")) MoveOne(text);
        if (Next("0"))
            MoveOne(text);
        else if (!Digits(text))
            return false;
        if (Next(".")) {
            MoveOne(text);
            if (!Digits(text)) return false;
        }
        if (Next("eE")) {
            MoveOne(text);
            if (Next("+-")) MoveOne(text);
            if (!Digits(text)) return false;
        }
        return true;
    }

    bool String(std::string& text) {
        if (!Take("\"")) return false;
        while (!Take("\"")) {
            if (rest_.empty() || !(rest_[0] == '\\' ? Escape(text) : Character(text))) return false;
        }
        return true;
    }

    bool Escape(std::string& text) {
        rest_.remove_prefix(1);
        if (Take("u")) return UnicodeEscape(text);
        constexpr std::string_view letters = "\"\\/bfnrt";
        if (!Next(letters)) return false;
        text += "\"\\/\b\f\n\r\t"[letters.find(rest_[0])];
        rest_.remove_prefix(1);
        return true;
    }

    /// A surrogate without its other half reads as U+FFFD.
    bool UnicodeEscape(std::string& text) {
        std::uint32_t point = 0;
        if (!Hex(point)) return false;
        if (point >= 0xD800 && point < 0xDC00 && Take("\\u")) {
            const std::string_view second = rest_;
            std::uint32_t low = 0;
            if (!Hex(low)) return false;
            if (low >= 0xDC00 && low < 0xE000) {
                point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
            } else {
                AppendUtf8(text, 0xFFFD);
                rest_ = second;
                return UnicodeEscape(text);
            }
        }
        AppendUtf8(text, point >= 0xD800 && point < 0xE000 ? 0xFFFD : point);
        return true;
    }

    bool Hex(std::uint32_t& number) {
        for (int i = 0; i < 4; ++i) {
            constexpr std::string_view digits = "0123456789abcdef0123456789ABCDEF";
            if (!Next(digits)) return false;
            number = number * 16 + static_cast<std::uint32_t>(digits.find(rest_[0]) % 16);
            rest_.remove_prefix(1);
        }
        return true;
    }

    /// One character of UTF-8: decoded, then held against what its code point encodes to.
    bool Character(std::string& text) {
        const auto lead = static_cast<unsigned char>(rest_[0]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        std::uint32_t point = length == 1 ? lead : lead & (0x7FU >> length);
        for (const char tail : rest_.substr(1, length - 1))
            point = point << 6 | (static_cast<unsigned char>(tail) & 0x3FU);
        std::string encoded;
        AppendUtf8(encoded, point);
        const bool surrogate = point >= 0xD800 && point < 0xE000;
        if (point < 0x20 || surrogate || point > 0x10FFFF || !Take(encoded)) return false;
        text += encoded;
        return true;
    }

    std::string_view rest_;
};

const Json* Member(const Json* object, std::string_view name) {
    if (object->kind != Json::Kind::object) return nullptr;
    const auto& names = object->names;
    const auto place = std::find(names.begin(), names.end(), name);
    if (place == names.end()) return nullptr;
    return &object->items[static_cast<std::size_t>(place - names.begin())];
}

const Json* Element(const Json* array, std::string_view number) {
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    if (array->kind != Json::Kind::array || number.empty() || number.size() > 9) return nullptr;
    const std::size_t n = std::stoul(std::string(number));
    return n <= array->items.size() ? &array->items[n - 1] : nullptr;
}

/// Whether the text is "[digits]", once or more.
bool IsNumbers(std::string_view text) {
    bool any = false;
    while (!text.empty()) {
        if (text[0] != '[' || text.find(']') == text.npos) return false;
        const std::string_view number = TakeUntil(text, "]").substr(1);
        if (number.empty() || number.find_first_not_of("0123456789") != number.npos) return false;
        any = true;
    }
    return any;
}

const Json* Segment(const Json* object, std::string_view segment) {
    std::size_t split = 0;
    while (split < segment.size() && !IsNumbers(segment.substr(split)))
        ++split;
    const Json* found = Member(object, segment.substr(0, split));
    segment.remove_prefix(split);
    while (found != nullptr && !segment.empty())
        found = Element(found, TakeUntil(segment, "]").substr(1));
    return found;
}

}  // namespace

std::optional<Json> ReadJson(std::string_view text) {
    Json root;
    if (!Reader(text).Document(root)) return std::nullopt;
    return root;
}

const Json* Find(const std::optional<Json>& root, std::string_view path) {
    if (!root || path.empty() || path[0] != '/') return nullptr;
    const Json* found = &*root;
    bool more = true;
    path.remove_prefix(1);
    while (found != nullptr && more) {
        more = path.find('/') != path.npos;
        found = Segment(found, TakeUntil(path, "/"));
    }
    return found;
}

std::string TextAt(const std::optional<Json>& root, std::string_view path,
                   const std::string& defaultText) {
    const Json* found = Find(root, path);
    return found != nullptr && found->kind == Json::Kind::text ? found->text : defaultText;
}

std::size_t SizeAt(const std::optional<Json>& root, std::string_view path) {
    const Json* found = Find(root, path);
    return found != nullptr && found->kind == Json::Kind::array ? found->items.size() : 0;
}

}  // namespace fuzz

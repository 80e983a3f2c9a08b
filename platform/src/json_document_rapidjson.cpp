#include <proto/CRapidJsonProto.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

// The library is configured for this file alone, hence a namespace of its own: merged with another
// configuration in the same program it would follow whichever the linker took. A failed assertion
// must not end the host.
#define RAPIDJSON_NAMESPACE proto_rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace RAPIDJSON_NAMESPACE {
#define RAPIDJSON_NAMESPACE_END }
#define RAPIDJSON_ASSERT(condition) static_cast<void>(0)

// Before its first allocation the library's stack compares an end made from a null pointer. That is
// harmless, but stops a run under the sanitizer.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/document.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif

namespace proto {
namespace {

namespace json = RAPIDJSON_NAMESPACE;

constexpr bool IsHighSurrogate(unsigned unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(unsigned unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsBetween(char byte, unsigned first, unsigned last) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= first && value <= last;
}

bool IsTail(char byte) {
    return IsBetween(byte, 0x80, 0xBF);
}

// The length of the UTF-8 sequence of two bytes or more at `text`; 0 when it is none. The second
// byte's range keeps out overlong forms, surrogates and what lies above U+10FFFF. A terminating NUL
// is no tail: nothing after it is read.
std::size_t MultibyteLength(const char* text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0xC2 || lead > 0xF4) return 0;
    if (lead < 0xE0) return IsTail(text[1]) ? 2 : 0;

    const unsigned first = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned last = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (!IsBetween(text[1], first, last) || !IsTail(text[2])) return 0;
    if (lead < 0xF0) return 3;
    return IsTail(text[3]) ? 4 : 0;
}

bool IsPlainAscii(char c) {
    return IsBetween(c, 0x20, 0x7F) && c != '"' && c != '\\';
}

// Eight characters at a time.
using Word = std::uint64_t;

Word WordAt(const char* text) {
    Word word = 0;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// Whether all characters of the word are plain ASCII. While no byte has its top bit set, taking the
// same number away from each sets that bit in the lowest one that is less, and in none where there
// is no such byte: a control character, or a quote or backslash that was made zero before.
bool IsAllPlainAscii(Word word) {
    constexpr Word ones = ~Word{0} / 0xFF;
    constexpr Word topBits = ones * 0x80;
    const Word controls = word - (ones * 0x20);
    const Word quotes = (word ^ (ones * '"')) - ones;
    const Word backslashes = (word ^ (ones * '\\')) - ones;
    return ((word | controls | quotes | backslashes) & topBits) == 0;
}

// The end of what a JSON string holds from `text` on without an escape. It reads up to a word from
// the terminating NUL on. Characters of one kind come in runs, hence a loop for each.
const char* EndOfPlainText(const char* text) {
    for (;;) {
        while (IsAllPlainAscii(WordAt(text)))
            text += sizeof(Word);
        while (IsPlainAscii(*text))
            ++text;
        std::size_t length = MultibyteLength(text);
        if (length == 0) return text;
        for (; length != 0; length = MultibyteLength(text))
            text += length;
    }
}

// Between escapes there are often a few characters only, for which a call would take longer.
void MoveDown(const char* from, std::size_t length, void* to) {
    constexpr std::size_t few = 32;
    if (to == from) return;
    if (length > few) {
        std::memmove(to, from, length);
        return;
    }
    auto* target = static_cast<char*>(to);
    for (const char* const end = from + length; from != end;)
        *target++ = *from++;
}

/// UTF-8 as the parser should take it. The library's own check reads up to two bytes past the end
/// of a text that ends within a character, and lets a low surrogate that stands alone through.
struct Utf8 : json::UTF8<> {
    template <typename Output>
    static void Encode(Output& output, unsigned codepoint) {
        UTF8<>::Encode(output, IsLowSurrogate(codepoint) ? 0xFFFDU : codepoint);
    }

    /// Called for a character that is no escape; takes all up to the next one with it. `input` and
    /// `output` are the same text, hence the move.
    template <typename Input, typename Output>
    static bool Validate(Input& input, Output& output) {
        const char* const begin = input.src_;
        const auto length = static_cast<std::size_t>(EndOfPlainText(begin) - begin);
        if (length == 0) return false;
        MoveDown(begin, length, output.Push(static_cast<json::SizeType>(length)));
        input.src_ += length;
        return true;
    }
};

// NOLINTBEGIN(cppcoreguidelines-no-malloc): an allocator, with a Realloc that new doesn't have.

/// The library uses what an allocator returns unchecked: a failure must not come back as null.
class ThrowingAllocator {
 public:
    void* Malloc(std::size_t size) { return size == 0 ? nullptr : Checked(std::malloc(size)); }

    void* Realloc(void* block, std::size_t /*size*/, std::size_t newSize) {
        if (newSize != 0) return Checked(std::realloc(block, newSize));
        std::free(block);
        return nullptr;
    }

    static void Free(void* block) { std::free(block); }

 private:
    static void* Checked(void* block) {
        if (block == nullptr) throw std::bad_alloc();
        return block;
    }
};

// NOLINTEND(cppcoreguidelines-no-malloc)

// All values lie in a pool that is freed as a whole, so that freeing doesn't recurse either.
using Pool = json::MemoryPoolAllocator<ThrowingAllocator>;
using Tree = json::GenericDocument<Utf8, Pool, ThrowingAllocator>;
using Value = Tree::ValueType;

std::string_view Text(const Value& value) {
    return {value.GetString(), value.GetStringLength()};
}

std::optional<unsigned> UnicodeEscape(std::string_view text) {
    if (text.size() < 6 || text[0] != '\\' || text[1] != 'u') return std::nullopt;
    unsigned unit = 0;
    const char* const end = text.data() + 6;
    if (std::from_chars(text.data() + 2, end, unit, 16).ptr != end) return std::nullopt;
    return unit;
}

std::size_t CountDigits(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) -
                                    text.begin());
}

// The length of the number that `text` begins with; 0 when it begins with none.
std::size_t NumberLength(std::string_view text) {
    std::size_t end = text.starts_with('-') ? 1 : 0;
    const std::size_t whole = CountDigits(text.substr(end));
    if (whole == 0) return 0;
    end += text[end] == '0' ? 1 : whole;

    if (end < text.size() && text[end] == '.') {
        const std::size_t fraction = CountDigits(text.substr(end + 1));
        if (fraction == 0) return end;
        end += 1 + fraction;
    }
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const std::string_view exponent = text.substr(end + 1);
        const std::size_t sign = exponent.starts_with('+') || exponent.starts_with('-') ? 1 : 0;
        const std::size_t digits = CountDigits(exponent.substr(sign));
        if (digits != 0) end += 1 + sign + digits;
    }
    return end;
}

/// Copies a text that the library refused for a limit of its own in a form that it reads: numbers
/// as strings, escapes of surrogates without their other half as that of U+FFFD. What is not
/// well-formed stays so.
class Rewriter {
 public:
    explicit Rewriter(std::string_view text) : rest_(text) { result_.reserve(text.size()); }

    std::string Run() {
        while (!rest_.empty()) {
            if (rest_[0] == '"')
                CopyString();
            else if (rest_[0] == '-' || IsDigit(rest_[0]))
                CopyNumber();
            else
                Copy(1);
        }
        return std::move(result_);
    }

 private:
    void Copy(std::size_t count) {
        result_ += rest_.substr(0, count);
        rest_.remove_prefix(std::min(count, rest_.size()));
    }

    void CopyString() {
        Copy(1);
        for (;;) {
            Copy(std::min(rest_.find_first_of("\"\\"), rest_.size()));
            if (rest_.empty()) return;
            if (rest_[0] == '"') return Copy(1);
            CopyEscape();
        }
    }

    void CopyEscape() {
        const std::optional<unsigned> unit = UnicodeEscape(rest_);
        if (!unit) return Copy(2);
        if (IsHighSurrogate(*unit) && IsLowSurrogate(UnicodeEscape(rest_.substr(6)).value_or(0)))
            return Copy(12);
        if (!IsHighSurrogate(*unit)) return Copy(6);
        result_ += "\\ufffd";
        rest_.remove_prefix(6);
    }

    void CopyNumber() {
        const std::size_t length = NumberLength(rest_);
        if (length == 0) return Copy(1);
        if (!EndsValue(rest_.substr(length))) return Copy(length);
        result_ += '"';
        Copy(length);
        result_ += '"';
    }

    // Elsewhere a string would be allowed where a number is not: as the name of a member.
    static bool EndsValue(std::string_view text) {
        const std::size_t next = text.find_first_not_of(" \t\r\n");
        return next == std::string_view::npos || text[next] == ',' || text[next] == ']' ||
               text[next] == '}';
    }

    std::string_view rest_;
    std::string result_;
};

json::ParseErrorCode ParseInPlace(std::string& text, Tree& tree) {
    constexpr unsigned flags = json::kParseIterativeFlag | json::kParseValidateEncodingFlag |
                               json::kParseNumbersAsStringsFlag;
    // The library counts in 32 bits.
    if (text.size() > std::numeric_limits<json::SizeType>::max())
        return json::kParseErrorTermination;
    text.append(sizeof(Word), '\0');  // what EndOfPlainText may read
    return tree.ParseInsitu<flags>(text.data()).GetParseError();
}

// Even where it keeps numbers as text the library refuses one beyond the range of a double, and it
// refuses a high surrogate that stands alone. Both are rare: only a text that holds one is read
// twice.
bool NeedsRewriting(json::ParseErrorCode error) {
    return error == json::kParseErrorNumberTooBig ||
           error == json::kParseErrorStringUnicodeSurrogateInvalid;
}

const Value* FindMember(const Value& object, std::string_view name) {
    if (!object.IsObject()) return nullptr;
    const auto member =
        std::find_if(object.MemberBegin(), object.MemberEnd(),
                     [name](const auto& candidate) { return Text(candidate.name) == name; });
    return member == object.MemberEnd() ? nullptr : &member->value;
}

const Value* FindElement(const Value& array, std::string_view number) {
    json::SizeType n = 0;
    const char* const end = number.data() + number.size();
    const bool fits = std::from_chars(number.data(), end, n).ec == std::errc();
    if (!fits || !array.IsArray() || n == 0 || n > array.Size()) return nullptr;
    return &array[n - 1];
}

// Where the element numbers begin that a path segment ends with: "list[2][1]" gives 4.
std::size_t NameLength(std::string_view segment) {
    while (segment.ends_with(']')) {
        const std::size_t open = segment.rfind('[');
        if (open == std::string_view::npos) break;
        const std::string_view number = segment.substr(open + 1, segment.size() - open - 2);
        if (number.empty() || CountDigits(number) != number.size()) break;
        segment = segment.substr(0, open);
    }
    return segment.size();
}

const Value* FindSegment(const Value& object, std::string_view segment) {
    const std::size_t nameLength = NameLength(segment);
    const Value* found = FindMember(object, segment.substr(0, nameLength));
    std::string_view numbers = segment.substr(nameLength);
    while (found != nullptr && !numbers.empty()) {
        const std::size_t close = numbers.find(']');
        found = FindElement(*found, numbers.substr(1, close - 1));
        numbers.remove_prefix(close + 1);
    }
    return found;
}

const Value* FindPath(const Value& root, std::string_view path) {
    if (path.empty()) return nullptr;
    const Value* found = &root;
    while (found != nullptr && !path.empty()) {
        if (path[0] != '/') return nullptr;
        path.remove_prefix(1);
        const std::size_t length = std::min(path.find('/'), path.size());
        found = FindSegment(*found, path.substr(0, length));
        path.remove_prefix(length);
    }
    return found;
}

}  // namespace

struct CRapidJsonProto::Document {
    std::string text;  // the strings of the tree lie in it
    // Room for the values of a short answer: the pool's own pieces are of 64 KiB.
    alignas(std::max_align_t) std::array<char, 512> room{};
    Pool pool{room.data(), room.size()};
    Tree tree{&pool};

    bool Load(std::string_view source) {
        text.reserve(source.size() + sizeof(Word));
        text = source;
        json::ParseErrorCode error = ParseInPlace(text, tree);
        if (NeedsRewriting(error)) {
            text = Rewriter(source).Run();
            error = ParseInPlace(text, tree);
        }
        return error == json::kParseErrorNone;
    }
};

CRapidJsonProto::CRapidJsonProto() = default;
CRapidJsonProto::~CRapidJsonProto() = default;

// NOLINTBEGIN(performance-unnecessary-value-param): the interface takes its arguments by value.

bool CRapidJsonProto::set_str(std::string text) {
    document_.reset();
    // A NUL byte would end the text for the parser.
    if (text.find('\0') != std::string::npos) return false;

    auto document = std::make_unique<Document>();
    if (!document->Load(text)) return false;
    document_ = std::move(document);
    return true;
}

void CRapidJsonProto::reserved_slot_2() {}
void CRapidJsonProto::reserved_slot_3() {}

std::int32_t CRapidJsonProto::get_array_size(std::string path) {
    const Value* found = document_ ? FindPath(document_->tree, path) : nullptr;
    if (found == nullptr || !found->IsArray()) return 0;
    constexpr json::SizeType most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(found->Size(), most));
}

std::string CRapidJsonProto::get_str(std::string path, std::string defaultText) {
    const Value* found = document_ ? FindPath(document_->tree, path) : nullptr;
    if (found == nullptr || !found->IsString()) return defaultText;
    return std::string(Text(*found));
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace proto

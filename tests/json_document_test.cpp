#include <proto/CRapidJsonProto.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;

bool Loads(const std::string& text) {
    return proto::CRapidJsonProto().set_str(text);
}

std::string Read(const std::string& text, const std::string& path) {
    proto::CRapidJsonProto document;
    return document.set_str(text) ? document.get_str(path, "(default)") : "(not read)";
}

std::string Repeated(std::string_view piece, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += piece;
    return result;
}

/// Any text beside a plain reader: see the fuzzer.
TEST(JsonDocument, RefusesWhatIsNot) {
    const std::vector<std::string> texts = {
        "", "{", "[1,]", "[1 2]", "{\"a\":1,}", "{a:1}", "{} {}", "'a'", "// c\n{}", "NaN",
        // numbers
        "-", "01", "1.", ".5", "1e+", "+1", "0x1", "{\"a\":1e999,1:2}",
        // strings
        "\"a", R"("\x")", R"("\u12g4")", "\"\x1F\"",
        // NUL and byte order mark
        "{}\0"s, "\0{}"s, "\"a\0b\""s, "\xEF\xBB\xBF{}",
        // UTF-8: lone tail, overlong, surrogate, beyond the last character, cut in a string or key
        "\"\x80\"", "\"\xC0\xAF\"", "\"\xE0\x9F\xBF\"", "\"\xF0\x8F\xBF\xBF\"", "\"\xED\xA0\x80\"",
        "\"\xF4\x90\x80\x80\"", "\"\xE4\xBD\"", "{\"\xC3\":1}", "\"\xF0\x9F", "\xF0\x9F"};
    for (const auto& text : texts)
        EXPECT_FALSE(Loads(text)) << text;
}

TEST(JsonDocument, ReadsEscapes) {
    const std::string replacement = "\xEF\xBF\xBD";
    const struct {
        const char* literal;
        std::string expected;
    } cases[] = {
        {R"(a\u0000b)", "a\0b"s},
        {"\xE4\xBD\xA0\xF0\x9F\x98\x80", "\xE4\xBD\xA0\xF0\x9F\x98\x80"},
        {R"(\ud83d\ude00)", "\xF0\x9F\x98\x80"},
        {R"(\uD800\n)", replacement + "\n"},
        {R"(\ud800\ud83d\ude00)", replacement + "\xF0\x9F\x98\x80"},
        {R"(\\\ud800\"12)", "\\" + replacement + "\"12"},
        {R"(\tover thirty-two bytes after an escape)", "\tover thirty-two bytes after an escape"},
    };
    for (const auto& [literal, expected] : cases) {
        EXPECT_EQ(Read(R"({"a":")"s + literal + R"("})", "/a"), expected) << literal;
        EXPECT_EQ(Read(R"({"a":"\ud800",")"s + literal + R"(":"found"})", "/" + expected),
                  expected.find('/') == std::string::npos ? "found" : "(default)")
            << literal;
    }
}

TEST(JsonDocument, FindsByPath) {
    const std::string text =
        R"({"data":{"list":[{"url":"u1"},{"url":"u2"}],"":"empty"},"grid":[["a"],["b","c"]],)"
        R"("k":"first","k":"second","odd[1]":"odd","odd[x]":"literal","":{"":"deep"}})";
    const std::pair<const char*, const char*> cases[] = {
        {"/data/list[002]/url", "u2"}, {"/grid[2][2]", "c"}, {"/k", "first"},
        {"/odd[x]", "literal"},        {"/data/", "empty"},  {"//", "deep"}};
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(Read(text, path), expected) << path;
    const std::vector<std::string> nothing = {
        "", "k", "/K", "/k/", "/k\0"s, "/k[1]", "/odd[1]", "[1]",
        // no index
        "/grid[0][1]", "/grid[3][1]", "/grid[-1][1]", "/grid[+1][1]", "/grid[][1]", "/grid[1][1]x",
        "/grid[[1]", "/grid[4294967297][1]", "/grid[18446744073709551617][1]",
        // long
        Repeated("/", 100000), "/grid" + Repeated("[1]", 100000), "/" + Repeated("]", 100000)};
    for (const auto& path : nothing)
        EXPECT_EQ(Read(text, path), "(default)") << path.substr(0, 100);
}

TEST(JsonDocument, DepthCostsNoStack) {
    constexpr std::size_t depth = 100000;
    for (const auto& [open, close] : {std::pair("[", "]"), std::pair("{\"a\":", "}")}) {
        const std::string opened = Repeated(open, depth);
        const std::string closed = Repeated(close, depth);
        EXPECT_TRUE(Loads(opened + "1" + closed)) << open;
        EXPECT_TRUE(Loads(opened + "1e999" + closed)) << open;
        EXPECT_FALSE(Loads(opened)) << open;
        EXPECT_FALSE(Loads(opened + "1" + closed + close)) << open;
    }
}

}  // namespace

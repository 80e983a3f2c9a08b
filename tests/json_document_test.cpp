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

std::string Repeated(std::string_view piece, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += piece;
    return result;
}

/// Any text beside a plain reader: see the fuzzer.
TEST(JsonDocument, RefusesWhatIsNot) {
    const std::vector<std::string> texts = {
        "", "{", "[1,]", "{} {}", "01", "{\"a\":1e999,1:2}", R"("\x")", "\"\x1F\"", "{}\0"s,
        // UTF-8: lone tail, overlong, surrogate, cut in a string
        "\"\x80\"", "\"\xC0\xAF\"", "\"\xF0\x8F\xBF\xBF\"", "\"\xED\xA0\x80\"", "\"\xF0\x9F"};
    for (const auto& text : texts)
        EXPECT_FALSE(Loads(text)) << text;
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

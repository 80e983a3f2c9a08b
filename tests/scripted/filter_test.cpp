#include "SensitiveWordFilter.h"

#include <Veltra/PhraseKey.h>

#include <gtest/gtest.h>

namespace {

using Keys = std::unordered_set<std::string>;
using Veltra::PhraseKey;

TEST(PhraseKeyTest, ReferenceValues) {
    const struct {
        const char* phrase;
        const char* key;
    } cases[] = {{"", "0"},
                 {"a", "4411302800239041983"},
                 {"abc", "6420922261882292859"},
                 {"bad word", "3813211389793428657"},
                 {"\xc3\xa9", "18166276278496758264"}};
    for (const auto& each : cases)
        EXPECT_EQ(PhraseKey(each.phrase), each.key) << each.phrase;
}

/// Any text and list: see the fuzzer.
TEST(SensitiveWordFilterTest, Matching) {
    const std::string badWord = PhraseKey("bad word");
    const std::string a = PhraseKey("a");
    const struct {
        Keys keys;
        std::uint32_t limit;
        std::string text;
        bool sensitive;
    } cases[] = {
        {{badWord}, 3, "this is a bad word!", true},
        {{badWord}, 3, "  bad   word  ", true},
        {{badWord}, 3, "bad\tword", false},
        {{badWord}, 3, "Bad word", false},
        {{badWord}, UINT32_MAX, "word bad word", true},
        {{a}, 3, "-;|?.!,:()<>[]{}\"a\"", true},
        {{a}, 3, "a'", false},
        {{a + " "}, 3, "a", false},
        {{"", "x", "18446744073709551616"}, 3, "a", false},
        {{}, 3, "bad word", false},
    };
    Veltra::SensitiveWordFilter filter;
    EXPECT_FALSE(filter.HasSensitiveWords("bad word")) << "before any list";
    for (const auto& each : cases) {
        filter.SetWords(each.keys, each.limit);
        EXPECT_EQ(filter.HasSensitiveWords(each.text), each.sensitive)
            << "'" << each.text << "' with limit " << each.limit;
    }
}

}  // namespace

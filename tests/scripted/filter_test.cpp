#include "Base64.h"
#include "SensitiveWordFilter.h"

#include <Veltra/Base64.h>
#include <Veltra/JsonText.h>
#include <Veltra/PhraseKey.h>

#include <gtest/gtest.h>

namespace {

using Keys = std::unordered_set<std::string>;
using Veltra::PhraseKey;

TEST(PhraseKeyTest, ReferenceValues) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "0"}, {"bad word", "3813211389793428657"}, {"\xc3\xa9", "18166276278496758264"}};
    for (const auto& [phrase, key] : cases)
        EXPECT_EQ(PhraseKey(phrase), key) << phrase;
}

struct Case {
    const char* phrase;
    std::uint32_t limit;
    const char* text;
    bool sensitive;
};

/// Any text and list: see the fuzzer.
TEST(SensitiveWordFilterTest, Matching) {
    const Case cases[] = {
        {"bad word", 3, "  bad   word  ", true},
        {"bad word", 3, "bad. word", false},
        {"bad word", 1, "bad word", false},
        {"bad word", 0, "bad word", false},
        {"bad word", UINT32_MAX, "word bad word", true},
    };
    Veltra::SensitiveWordFilter filter;
    EXPECT_FALSE(filter.HasSensitiveWords("bad word")) << "before any list";
    for (const auto& each : cases) {
        filter.SetWords({PhraseKey(each.phrase)}, each.limit);
        EXPECT_EQ(filter.HasSensitiveWords(each.text), each.sensitive)
            << "'" << each.text << "' with limit " << each.limit;
    }
    const std::string a = PhraseKey("a");
    filter.SetWords({a}, 3);
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = std::string("x") + static_cast<char>(byte) + "a";
        const bool parts = std::string(" -;|?.!,:()<>[]{}\"").find(text[1]) != std::string::npos;
        EXPECT_EQ(filter.HasSensitiveWords(text), parts) << text;
    }
    // Another number, or the same in another form.
    for (const auto& key : {a + " ", " " + a, "0" + a, "+" + a, a + "x", std::string(),
                            std::string("22858046873948593599")}) {
        filter.SetWords({key}, 3);
        EXPECT_FALSE(filter.HasSensitiveWords("a")) << key;
    }
    filter.SetWords({}, 3);
    EXPECT_FALSE(filter.HasSensitiveWords("a"));
}

TEST(TextsForRequests, EscapeJson) {
    const std::string bad = "\xEF\xBF\xBD";
    const struct {
        std::string text;
        std::string escaped;
    } cases[] = {
        {R"(say "a\b")", R"(say \"a\\b\")"},
        {std::string("\b\t\n\f\r\x1F\0", 7), R"(\b\t\n\f\r\u001f\u0000)"},
        // The least that JSON asks for, or the phrase list would miss words.
        {"/\x7F\xC3\xA9\xE2\x80\xA8\xED\x9F\xBF\xF4\x8F\xBF\xBF",
         "/\x7F\xC3\xA9\xE2\x80\xA8\xED\x9F\xBF\xF4\x8F\xBF\xBF"},
        // What is no UTF-8 takes no quote along: a lone lead, a cut character, a wrong tail.
        {"\xC3\"", bad + R"(\")"},
        {"\xF0\x9F\x98\"", bad + bad + bad + R"(\")"},
        {"\xE2\x80", bad + bad},
        {"\x80", bad},
        // Overlong, a surrogate, beyond the last character.
        {"\xC0\xAF", bad + bad},
        {"\xE0\x9F\xBF", bad + bad + bad},
        {"\xF0\x8F\xBF\xBF", bad + bad + bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"\xF5", bad},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Veltra::EscapeJson(each.text), each.escaped) << each.escaped;
}

/// The library's own decoder, which takes blocks of 768, gives the bytes back, whatever they are and
/// however many are left over.
TEST(TextsForRequests, EncodeBase64) {
    EXPECT_EQ(Veltra::EncodeBase64(nullptr, 0), "");
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 800; ++i) {
        bytes.push_back(static_cast<unsigned char>(i * 37));
        const std::string text = Veltra::EncodeBase64(bytes.data(), bytes.size());
        EXPECT_EQ(text.size() % 4, 0U) << text;
        EXPECT_EQ(Veltra::base64_decode(text), bytes) << text;
    }
}

/// What is found in a plain value is found in the same value escaped.
TEST(TextsForRequests, AddPhraseKeys) {
    const Case cases[] = {
        {"bad word", 2, "such a bad word here", true},
        {"bad word", 2, R"(say "bad word" now)", true},
        {"  bad   word ", 2, R"(a "bad  word")", true},
        {R"(\\host\share)", 1, R"(on \\host\share now)", true},
        {R"(\\host\share)", 1, R"(on "\\host\share")", true},
        {"tab\there", 1, "a tab\there \"tab\there\"", true},
        {"caf\xC3\xA9", 1, "(caf\xC3\xA9)", true},
        {"caf\xE9", 1, "a caf\xE9 here", true},
    };
    Veltra::SensitiveWordFilter filter;
    for (const auto& each : cases) {
        Keys keys;
        Veltra::AddPhraseKeys(keys, each.phrase);
        filter.SetWords(keys, each.limit);
        EXPECT_EQ(filter.HasSensitiveWords(each.text), each.sensitive) << each.text;
        EXPECT_EQ(filter.HasSensitiveWords(Veltra::EscapeJson(each.text)), each.sensitive)
            << each.text;
    }
    Keys keys;
    for (const char* phrase : {"", "  ", "bad-word", "\"bad\"", "one. two"})
        Veltra::AddPhraseKeys(keys, phrase);
    EXPECT_TRUE(keys.empty()) << "of phrases that no text can hold";
}

}  // namespace

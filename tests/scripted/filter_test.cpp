#include "SensitiveWordFilter.h"

#include <Veltra/PhraseKey.h>

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>

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
        {{badWord}, 3, "bad word", true},
        {{badWord}, 3, "bad, word", false},
        {{badWord}, 3, "  bad   word  ", true},
        {{badWord}, 3, "bad\tword", false},
        {{badWord}, 3, "Bad word", false},
        {{badWord}, 1, "bad word", false},
        {{badWord}, 0, "bad word", false},
        {{badWord}, 2, "one. two bad word", true},
        {{badWord}, UINT32_MAX, "word bad word", true},
        {{badWord}, 3, "bad\xef\xbc\x8cword", false},
        {{a}, 3, "(a)", true},
        {{a}, 3, "ab", false},
        {{a}, 3, "-;|?.!,:()<>[]{}\"a\"", true},
        {{a}, 3, "a'", false},
        {{a}, 3, "", false},
        {{a}, 3, " .. ", false},
        {{PhraseKey("a\xc3\xa9 \xff z")}, 3, "x a\xc3\xa9 \xff z y", true},
        {{PhraseKey(std::string("a\0b", 3))}, 3, std::string("x a\0b y", 7), true},
        {{"0" + a}, 3, "a", false},
        {{"+" + a}, 3, "a", false},
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

/// The rules written down plainly: every phrase as a text of its own, looked up by its key.
bool PlainlySensitive(const std::string& text, const Keys& keys, std::size_t limit) {
    std::vector<std::vector<std::string>> sentences(1);
    std::string word;
    const auto endWord = [&] {
        if (!word.empty()) sentences.back().push_back(word);
        word.clear();
    };
    for (const char c : text) {
        const bool endsSentence = std::string("-;|?.!,:()<>[]{}\"").find(c) != std::string::npos;
        if (c == ' ' || endsSentence) endWord();
        if (endsSentence) sentences.emplace_back();
        if (c != ' ' && !endsSentence) word += c;
    }
    endWord();
    for (const auto& words : sentences) {
        for (std::size_t start = 0; start < words.size(); ++start) {
            std::string phrase;
            for (std::size_t m = 0; m < limit && start + m < words.size(); ++m) {
                phrase += (m == 0 ? "" : " ") + words[start + m];
                if (keys.count(PhraseKey(phrase)) != 0) return true;
            }
        }
    }
    return false;
}

TEST(SensitiveWordFilterTest, AgreesWithThePlainRules) {
    std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same texts on every run
    const auto pick = [&random](std::size_t n) { return random() % n; };
    const std::string alphabet = "ab   .";
    Veltra::SensitiveWordFilter filter;
    int sensitive = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (std::size_t size = pick(25); size > 0; --size)
            text += alphabet[pick(alphabet.size())];
        const Keys keys{PhraseKey(pick(2) != 0 ? "a b" : "ab a"), PhraseKey("b a")};
        const std::uint32_t limit = static_cast<std::uint32_t>(pick(4));
        filter.SetWords(keys, limit);
        const bool expected = PlainlySensitive(text, keys, limit);
        sensitive += expected ? 1 : 0;
        ASSERT_EQ(filter.HasSensitiveWords(text), expected) << "'" << text << "' limit " << limit;
    }
    EXPECT_GT(sensitive, 300);
}

TEST(SensitiveWordFilterTest, ListsReplacedUnderChecks) {
    Veltra::SensitiveWordFilter filter;
    std::atomic<bool> done{false};
    std::vector<std::thread> checkers;
    for (int i = 0; i < 4; ++i) {
        checkers.emplace_back([&] {
            while (!done)
                EXPECT_FALSE(filter.HasSensitiveWords("never a match, ever"));
        });
    }
    for (int i = 0; i < 300; ++i)
        filter.SetWords({PhraseKey(std::to_string(i)), "1", "2"}, 3);
    done = true;
    for (auto& checker : checkers)
        checker.join();
}

}  // namespace

// The scanner beside the regular expression that defines the language.

#include "time_expression.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Veltra {
namespace {

using namespace std::string_view_literals;

/// All terms of the text, what follows the last, and whether a value was too large.
template <class Take>
std::string Reading(const std::string& text, Take take) {
    std::string reading;
    std::string_view rest = text;
    try {
        while (const std::optional<TimeTerm> term = take(rest)) {
            reading += term->tilde ? "tilde " : "";
            reading += term->sign != 0 ? std::string{term->sign} : "unsigned ";
            reading += std::to_string(term->value) + term->unit + ", ";
        }
        reading += "rest ";
    } catch (const std::out_of_range&) {
        reading += "out of range in ";
    }
    return reading.append(rest);
}

std::optional<TimeTerm> TakeTermByRegex(std::string_view& rest) {
    static const std::regex pattern("(~)?([+-]?)(\\d+)([yYmMdDwWhHsS])");
    std::cmatch match;
    if (!std::regex_search(rest.data(), rest.data() + rest.size(), match, pattern)) return {};
    TimeTerm term;
    term.tilde = match[1].matched;
    term.sign = match[2].length() == 0 ? '\0' : *match[2].first;
    term.value = std::stoi(match[3].str());
    term.unit = *match[4].first;
    rest.remove_prefix(static_cast<std::size_t>(match[0].second - rest.data()));
    return term;
}

TEST(TimeExpression, ReadsEveryShortAndManyALongTextAsTheRegexDoes) {
    std::vector<std::string> texts{"2147483647d", "-2147483648d", std::string(40, '0') + "5d", ""};
    for (std::size_t next = 0; next < texts.size(); ++next)
        for (const char c : texts[next].size() < 5 ? "~+-19dMx"sv : ""sv)
            texts.push_back(texts[next] + c);

    // Digits often enough for values around and beyond 2^31.
    const auto alphabet = "~~+--0123456789012345678901234567yYmMdDwWhHsSdhT: xin\0\x7f\xc3\xff"sv;
    std::seed_seq seed{4};  // the same texts in every run
    std::mt19937 random(seed);
    for (int round = 0; round < 50000; ++round) {
        std::string& text = texts.emplace_back(random() % 41, '\0');
        for (char& c : text)
            c = alphabet[random() % alphabet.size()];
    }
    for (const std::string& text : texts)
        EXPECT_EQ(Reading(text, TakeTerm), Reading(text, TakeTermByRegex))
            << testing::PrintToString(text);
}

}  // namespace
}  // namespace Veltra

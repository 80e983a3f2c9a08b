#ifndef PARSER_WORDS_H
#define PARSER_WORDS_H

#include <CLI/Error.hpp>

#include <string>
#include <string_view>

/// What is wrong with a command line: the parser's message, except where that speaks of the parser's
/// own conversions and types.
inline std::string wordsOf(const CLI::ParseError& error) {
    constexpr std::string_view kNotConverted = "Could not convert: ";
    constexpr std::string_view kMissing = " missing";
    std::string words = error.what();
    const auto equals = words.find(" = ");
    if (words.rfind(kNotConverted, 0) == 0 && equals != words.npos)
        return words.substr(kNotConverted.size(), equals - kNotConverted.size()) + ": " +
               words.substr(equals + 3) + " is not a valid value";
    const bool lacksValue = error.get_name() == "ArgumentMismatch" &&
                            words.size() > kMissing.size() &&
                            words.rfind(kMissing) == words.size() - kMissing.size();
    if (lacksValue) return words.substr(0, words.find(':')) + ": the value is missing";
    return words;
}

#endif

#include "commands.h"
#include "common_options.h"
#include "output.h"
#include "phrases.h"

#include <Veltra/PhraseKey.h>

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tool {

namespace {

constexpr const char* kEnd =
    "Prints the key of each PHRASE or, without any, of each line of standard input that isn't\n"
    "blank. Write a phrase as it stands in a text: words parted by single spaces, UTF-8, in the\n"
    "very case that is to be found.\n"
    "Examples:\n"
    "  veltra phrase-key \"project bluebird\" merger\n"
    "  veltra phrase-key < phrases.txt > keys.txt\n"
    "JSON: {\"ok\":true,\"keys\":[{\"phrase\":\"..\",\"key\":\"..\"}]}\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.";

void printKeysAsJson(const std::vector<std::string>& phrases) {
    for (const auto& phrase : phrases)
        jsonEscaped(phrase, "a phrase");
    printJson(true, [&](JsonWriter& writer) {
        writer.name("keys");
        writer.beginArray();
        for (const auto& phrase : phrases) {
            writer.beginObject();
            writer.member("phrase", phrase);
            writer.member("key", Veltra::PhraseKey(phrase));
            writer.endObject();
        }
        writer.endArray();
    });
}

int printKeys(const std::vector<std::string>& arguments, bool json) {
    const auto phrases = arguments.empty() ? readPhrases(std::cin) : arguments;
    if (json) {
        printKeysAsJson(phrases);
        return kSuccess;
    }
    for (const auto& phrase : phrases)
        printLine(Veltra::PhraseKey(phrase));
    return kSuccess;
}

// The phrases are taken as the command line's extra arguments: a positional with many values would
// read "[a,b]" as two of them.
std::vector<std::string> phrasesOf(const CLI::App& command) {
    auto phrases = command.remaining();
    for (const auto& phrase : phrases)
        if (phrase.size() > 1 && phrase.front() == '-') throw CLI::ExtrasError({phrase});
    return phrases;
}

/// Names the phrases, which aren't declared.
class Help : public CLI::Formatter {
 public:
    std::string make_usage(const CLI::App* /*app*/, std::string name) const override {
        return "Usage: " + name + " [OPTIONS] [PHRASE...]\n";
    }
};

}  // namespace

void addPhraseKey(CLI::App& app, Command& chosen) {
    auto* command = app.add_subcommand(
        "phrase-key", "Compute the keys under which a host hands in sensitive phrases");
    const auto options = std::make_shared<CommonOptions>();
    command->footer(kEnd);
    command->formatter(std::make_shared<Help>());
    command->allow_extras();
    addJson(*command, *options);
    command->callback([command, options, &chosen] {
        chosen = [phrases = phrasesOf(*command), options] {
            return printKeys(phrases, options->json);
        };
    });
}

}  // namespace tool

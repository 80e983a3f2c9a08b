#include "commands.h"
#include "common_options.h"
#include "output.h"
#include "phrases.h"
#include "process.h"

#include <Veltra/PhraseKey.h>

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace tool {

namespace {

constexpr const char* kPhraseKeyEnd =
    "Prints the key of each PHRASE or, if none is given, of each non-blank line of standard\n"
    "input. Write a phrase as it appears in a text: UTF-8 words separated by single spaces, in\n"
    "exactly the case to be found. A warning names phrases that no text can match.\n"
    "A host that escapes its values needs the keys of --escaped, two for each phrase: that of the\n"
    "escaped phrase, and that of the escaped phrase before an escaped quote.\n"
    "\nExamples:\n"
    "  veltra phrase-key \"project bluebird\" merger\n"
    "  veltra phrase-key --escaped < phrases.txt > keys.txt\n"
    "\nJSON: {\"ok\":true,\"keys\":[{\"phrase\":\"..\",\"key\":\"..\"}]}; with --escaped, each "
    "also has\n"
    "  \"keyBeforeQuote\".\n"
    "\n--log-level is accepted for scripts that pass it to every subcommand; computing keys logs\n"
    "nothing.\n"
    "\nExit status: 0 success, 1 the output was lost, 2 wrong usage.";

struct PhraseKeyOptions {
    CommonOptions common;
    bool escaped = false;
};

/// A phrase as it appears in escaped texts.
struct EscapedPhrase {
    explicit EscapedPhrase(const std::string& phrase)
        : text(jsonEscaped(phrase, "a phrase")), beforeQuote(text + '\\') {}
    std::string text;
    std::string beforeQuote;  ///< a quote ends a sentence and leaves its backslash on the last word
};

/// Whether some text can match exactly this phrase, whose words must be separated by single spaces.
bool isEverFound(const std::string& phrase) {
    std::unordered_set<std::string> keys;
    Veltra::AddPhraseKeys(keys, phrase);
    return keys.count(Veltra::PhraseKey(phrase)) != 0;
}

/// Returns the phrases of the command line or, if there are none, of standard input.
class Phrases {
 public:
    explicit Phrases(const std::vector<std::string>& arguments)
        : arguments_(arguments),
          neverFound_(arguments.empty() ? "standard input, line" : "phrase",
                      kEndsASentence + std::string(", and single spaces between its words")) {}

    std::optional<std::string> next() {
        auto phrase = read();
        if (phrase && !isEverFound(*phrase))
            neverFound_.add(arguments_.empty() ? lines_.line() : given_);
        return phrase;
    }

    void warn() const { neverFound_.warn(); }

 private:
    std::optional<std::string> read() {
        if (arguments_.empty()) return lines_.next();
        if (given_ == arguments_.size()) return std::nullopt;
        return arguments_[given_++];
    }

    const std::vector<std::string>& arguments_;
    std::size_t given_ = 0;
    PhraseLines lines_{standardInput()};
    NeverFound neverFound_;
};

void writeKeys(JsonWriter& writer, const std::string& phrase, bool escaped) {
    writer.beginObject();
    writer.member("phrase", phrase);
    if (escaped) {
        const EscapedPhrase forms(phrase);
        writer.member("key", Veltra::PhraseKey(forms.text));
        writer.member("keyBeforeQuote", Veltra::PhraseKey(forms.beforeQuote));
    } else {
        writer.member("key", Veltra::PhraseKey(phrase));
    }
    writer.endObject();
}

void printKeysAsJson(Phrases& phrases, bool escaped) {
    JsonWriter keys;
    keys.beginArray();
    while (const auto phrase = phrases.next()) {
        // The phrase is printed beside its key: repaired, it would be a different one.
        requireUtf8(*phrase, "a phrase");
        writeKeys(keys, *phrase, escaped);
    }
    keys.endArray();
    printJson(true, [&](JsonWriter& writer) {
        writer.name("keys");
        writer.json(keys.written());
    });
}

// Each key is printed before the next phrase is read: the input may have no end.
void printKeysAsText(Phrases& phrases, bool escaped) {
    while (const auto phrase = phrases.next()) {
        if (escaped) {
            const EscapedPhrase forms(*phrase);
            printLine(Veltra::PhraseKey(forms.text));
            printLine(Veltra::PhraseKey(forms.beforeQuote));
        } else {
            printLine(Veltra::PhraseKey(*phrase));
        }
        if (outputIsLost()) return;
    }
}

int printKeys(const std::vector<std::string>& arguments, const PhraseKeyOptions& options) {
    Phrases phrases(arguments);
    if (options.common.json)
        printKeysAsJson(phrases, options.escaped);
    else
        printKeysAsText(phrases, options.escaped);
    phrases.warn();
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

/// Shows the phrases in the usage, since they aren't declared.
class Help : public CLI::Formatter {
 public:
    std::string make_usage(const CLI::App* /*app*/, std::string name) const override {
        return "Usage: " + name + " [OPTIONS] [PHRASE...]\n";
    }
};

}  // namespace

void addPhraseKey(CLI::App& app, Command& chosen) {
    auto* command =
        app.add_subcommand("phrase-key", "Compute the keys of sensitive phrases for a host's list");
    const auto options = std::make_shared<PhraseKeyOptions>();
    command->footer(kPhraseKeyEnd);
    command->formatter(std::make_shared<Help>());
    command->allow_extras();
    command->add_flag("--escaped", options->escaped,
                      "Keys for values that are escaped for JSON: two for each phrase");
    addLogLevel(*command, options->common);
    addJson(*command, options->common);
    command->callback([command, options, &chosen] {
        chosen = [phrases = phrasesOf(*command), options] { return printKeys(phrases, *options); };
    });
}

}  // namespace tool

#include "commands.h"
#include "common_options.h"
#include "credentials.h"
#include "files.h"
#include "login.h"
#include "output.h"
#include "phrases.h"
#include "process.h"
#include "records.h"
#include "repeat.h"
#include "repeat_report.h"
#include "run_query.h"
#include "trace_id.h"
#include "values.h"

#include <Veltra/Veltra.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

namespace {

constexpr const char* kQueryEnd =
    "The answer goes to standard output. Prompt key, names, values and the other texts are UTF-8;\n"
    "quotes, backslashes and control characters in them are escaped for JSON. \"--\" ends the\n"
    "options.\n"
    "NAME=@FILE takes the value from a file, NAME=@- from standard input, up to 32 MiB each;\n"
    "a line break at the end is dropped. NAME=@@TEXT is the value @TEXT.\n"
    "--repeat prints a summary instead of the answers: latency percentiles (nearest rank) of the\n"
    "answered queries, answered queries per second, failures by code. Each thread's first query\n"
    "opens its connection. Ctrl-C cancels the query; with --repeat it ends the run with the\n"
    "summary so far. A second Ctrl-C ends the program at once.\n"
    "\nExamples:\n"
    "  veltra query greeting name=Ada place=Veltra --credentials keys.json\n"
    "  veltra query summary sentences=2 text=@report.txt --filter 3 \\\n"
    "      --domain https://gateway.example --phrase-file phrases.txt --json\n"
    "  git log -5 | veltra query summary sentences=3 text=@- --credentials keys.json\n"
    "  veltra query greeting name=Ada --repeat 1000 --threads 8 --credentials keys.json\n";

constexpr const char* kQueryOutcome =
    "\nJSON: {\"ok\":true,\"traceId\":\"..\",\"answer\":\"..\",REPORT}, or\n"
    "  {\"ok\":false,\"code\":N,\"message\":\"..\",REPORT}; REPORT is \"outcome\":\"..\",\n"
    "  \"detail\":\"..\",\"attempts\":N,\"httpStatus\":N. N is the query's code: 1 no valid "
    "token,\n"
    "  2 gateway not reached, 3 service not usable, 4 sensitive words, 6 refused by the gateway;\n"
    "  0 if domain or login failed before the query. With --repeat it has the summary's members,\n"
    "  which docs/command-line.md and veltra(1) list.\n"
    "\nExit status: 0 answered (with --repeat, every query), 1 refused or failed, 2 wrong usage,\n"
    "  130 interrupted.";

struct QueryOptions {
    CommonOptions common;
    std::string promptKey;
    std::vector<std::string> assignments;
    int filter = static_cast<int>(Veltra::FilterType::None);
    std::vector<std::string> sensitive;
    std::string traceId;
    std::string phraseFile;
    std::optional<std::uint32_t> phraseLimit;
    std::uint32_t timeLimitMs = 0;
    std::optional<std::uint32_t> repeat;
    std::uint32_t threads = 1;
    CLI::Option* logLevel = nullptr;

    /// A failure of many queries would flood the screen: it is counted instead.
    int recordLevel() const {
        return repeat && logLevel->count() == 0 ? kNoRecords : common.logLevel;
    }
};

std::map<std::string, std::string> escapedElements(const Values& values) {
    std::map<std::string, std::string> elements;
    for (const auto& [name, value] : values)
        elements.emplace(jsonEscaped(name, "a name"), jsonEscaped(value, "the value of " + name));
    return elements;
}

std::shared_ptr<Veltra::CHumanMessage> makeMessage(const QueryOptions& options,
                                                   const Values& values) {
    std::vector<std::string> sensitive;
    for (const auto& text : options.sensitive)
        sensitive.push_back(jsonEscaped(text, "a text for --sensitive"));
    auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements(jsonEscaped(options.promptKey, "the prompt key"), escapedElements(values));
    message->SetFilterType(static_cast<Veltra::FilterType>(options.filter));
    message->SetSensitiveContent(sensitive);
    message->SetSessionID(jsonEscaped(options.traceId, "the trace id"));
    return message;
}

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < 0x20;
}

/// Only spaces separate words, and files have many lines.
void warnOfControls(const Values& values) {
    for (const auto& [name, value] : values)
        if (std::any_of(value.begin(), value.end(), isControl))
            complain("warning: the value of " + name +
                     " has line breaks or tabs; phrases next to them are not found");
}

void setPhrases(const QueryOptions& options, const Values& values) {
    if (options.phraseFile.empty()) return;
    const auto list = loadPhraseFile(options.phraseFile, options.phraseLimit);
    Veltra::Veltra_SetsitiveWords(list.keys, options.phraseLimit.value_or(list.mostWords));
    warnOfControls(values);
}

int runOnce(const QueryOptions& options, const std::shared_ptr<Veltra::CHumanMessage>& message) {
    const std::string answer = QuerySession().run(message);
    const auto report = Veltra::Veltra_LastCall();
    if (options.common.json) {
        printJson(true, [&](JsonWriter& writer) {
            writer.member("traceId", options.traceId);
            writer.member("answer", answer);
            writer.report(report);
        });
    } else {
        note("trace id: " + options.traceId);
        printAnswer(answer);
    }
    return kSuccess;
}

/// Each query gets a trace id of its own.
PrepareQuery repeatedQuery(const QueryOptions& options, const Values& values) {
    const auto message = makeMessage(options, values);
    const std::string stem = jsonEscaped(options.traceId, "the trace id") + '-';
    Veltra::CCallControl control;
    control.SetTimeLimit(options.timeLimitMs);
    return [message, stem, control, session = QuerySession()](std::uint64_t number) {
        message->SetSessionID(stem + std::to_string(number));
        return [&session, &message, &control] {
            const Veltra::CCallScope scope(control);
            session.run(message);
        };
    };
}

int runOften(const QueryOptions& options, const Values& values) {
    const RepeatPlan plan{*options.repeat, std::min(*options.repeat, options.threads)};
    if (!options.common.json) note("trace ids: " + options.traceId + "-1 and so on");
    const auto result = runRepeatedly(plan, [&] { return repeatedQuery(options, values); });
    return reportRepeat(options.common.json, options.traceId, plan, result);
}

int logInAndRun(const QueryOptions& options) {
    // Whatever is wrong with the arguments comes to light before the first exchange.
    checkForm(options.assignments);
    const auto credentials = loadCredentials(options.common.credentialsFile);
    const auto values = readValues(options.assignments);
    const auto message = makeMessage(options, values);
    Oak::Net::SetHttpClientOptions(options.common.http);
    const Records records(options.recordLevel(), credentials);
    setPhrases(options, values);
    if (options.repeat) {
        const Login login(options.common.domain, credentials);
        return runOften(options, values);
    }
    // Ctrl-C cancels the call under way, the login's too. A repeated run handles it itself.
    Veltra::CCallControl control;
    control.SetTimeLimit(options.timeLimitMs);
    const Veltra::CCallScope scope(control);
    const Interruption interruption([control]() mutable { control.Cancel(); });
    try {
        const Login login(options.common.domain, credentials);
        return runOnce(options, message);
    } catch (const Failure& failure) {
        if (!interruption.requested()) throw;
        reportFailure(options.common.json, failure);
        return kInterrupted;
    }
}

int query(QueryOptions& options) {
    if (options.traceId.empty()) options.traceId = newTraceId();
    try {
        return logInAndRun(options);
    } catch (const Failure& failure) {
        reportFailure(options.common.json, failure);
        return kFailure;
    }
}

void declare(CLI::App& command, QueryOptions& options) {
    command.footer(std::string(kQueryEnd) + kKeysHelp + kQueryOutcome);
    command.add_option("PROMPT_KEY", options.promptKey, "Key of the gateway's prompt template")
        ->required();
    command.add_option("NAME=VALUE", options.assignments, "Values for the template's placeholders");
    command
        .add_option("--filter", options.filter,
                    "What the gateway checks for forbidden words: 1 nothing, 2 the input, 3 or 4 "
                    "input and output (default: 1)")
        ->option_text("N")
        ->check(CLI::Range(1, 4));
    command
        .add_option("--sensitive", options.sensitive,
                    "Text for the gateway to check in place of the values; repeatable")
        ->option_text("TEXT")
        ->allow_extra_args(false);
    command
        .add_option("--trace-id", options.traceId,
                    "Identifier of the query at the gateway (default: a new one)")
        ->option_text("ID");
    auto* phraseFile = command
                           .add_option("--phrase-file", options.phraseFile,
                                       "File with sensitive phrases, one per line: a value that "
                                       "contains one is refused before the query is sent")
                           ->option_text("FILE")
                           ->check(existingFile());
    command
        .add_option(
            "--phrase-limit", options.phraseLimit,
            "Most words of a phrase that is looked up (default: those of the longest phrase)")
        ->option_text("N")
        ->needs(phraseFile);
    command
        .add_option("--time-limit-ms", options.timeLimitMs,
                    "Time limit of the login and of each query in milliseconds, attempts and waits "
                    "included (default: none)")
        ->option_text("N")
        ->check(CLI::Range(std::uint32_t{1}, std::numeric_limits<std::uint32_t>::max()));
    auto* repeat = command
                       .add_option("--repeat", options.repeat,
                                   "Run the query N times in total, over all threads, and print "
                                   "a summary (1 to 10000000)")
                       ->option_text("N")
                       ->check(CLI::Range(std::uint32_t{1}, kMostRepeats));
    command
        .add_option("--threads", options.threads,
                    "Threads for --repeat, each with its own session (1 to 256, default: 1)")
        ->option_text("K")
        ->check(CLI::Range(std::uint32_t{1}, kMostThreads))
        ->needs(repeat);
    addDomain(command, options.common);
    addConnection(command, options.common);
    addCredentials(command, options.common);
    options.logLevel = addLogLevel(command, options.common);
    addJson(command, options.common);
}

}  // namespace

void addQuery(CLI::App& app, Command& chosen) {
    auto* command = app.add_subcommand("query", "Log in, run a template query, print the answer");
    const auto options = std::make_shared<QueryOptions>();
    declare(*command, *options);
    command->callback([options, &chosen] { chosen = [options] { return query(*options); }; });
}

}  // namespace tool

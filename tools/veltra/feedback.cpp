#include "commands.h"
#include "common_options.h"
#include "credentials.h"
#include "files.h"
#include "login.h"
#include "output.h"
#include "pictures.h"
#include "process.h"
#include "records.h"
#include "submit_feedback.h"

#include <Veltra/Veltra.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

namespace {

constexpr const char* kFeedbackEnd =
    "See \"veltra feedback submit --help\" and \"veltra feedback cancel --help\" for details.";

constexpr const char* kSubmitEnd =
    "The feedback id goes to standard output, the library's log records to standard error. With\n"
    "--log-level detail the request bodies go there too, unless it is a terminal. Texts are "
    "UTF-8;\n"
    "quotes, backslashes and control characters in them are escaped for JSON.\n"
    "Pictures are JPEG files, at most 4, of at most 32 MiB each. One that can't be uploaded is\n"
    "left out, with a log record on standard error; if none can be, the feedback fails.\n"
    "\nExamples:\n"
    "  veltra feedback submit --trace-id 4f1c --comment \"Not what I asked\" --satisfaction 2 \\\n"
    "      --type 1 --credentials keys.json\n"
    "  veltra feedback submit --trace-id 4f1c --country FR --picture before.jpg after.jpg --json\n";

constexpr const char* kSubmitOutcome =
    "\nJSON: {\"ok\":true,\"feedbackId\":\"..\",REPORT}, or\n"
    "  {\"ok\":false,\"code\":0,\"message\":\"..\",REPORT}; the id is empty if the gateway gave\n"
    "  none; REPORT is \"outcome\":\"..\",\"detail\":\"..\",\"attempts\":N,\"httpStatus\":N\n"
    "\nExit status: 0 the gateway accepted the feedback, 1 refused or failed, 2 wrong usage.";

constexpr const char* kCancelEnd =
    "Example:\n"
    "  veltra feedback cancel 1f0a --credentials keys.json\n";

constexpr const char* kCancelOutcome =
    "\nJSON: {\"ok\":true,\"feedbackId\":\"..\",REPORT}, or\n"
    "  {\"ok\":false,\"code\":0,\"message\":\"..\",REPORT}; REPORT is \"outcome\":\"..\",\n"
    "  \"detail\":\"..\",\"attempts\":N,\"httpStatus\":N\n"
    "\nExit status: 0 withdrawn, 1 refused (as a second time is) or failed, 2 wrong usage.";

struct SubmitOptions {
    CommonOptions common;
    std::string traceId;
    std::int32_t satisfaction = 0;
    std::int32_t type = 0;
    std::string comment;
    std::optional<std::string> country;
    std::vector<std::string> pictures;
};

struct CancelOptions {
    CommonOptions common;
    std::string feedbackId;
};

std::shared_ptr<Veltra::LLMComment> makeComment(const SubmitOptions& options) {
    auto comment =
        std::make_shared<Veltra::LLMComment>(jsonEscaped(options.traceId, "the trace id"));
    comment->SetSatisfactionLevel(static_cast<Veltra::SatisfactionLevel>(options.satisfaction));
    comment->SetLLMErrType(static_cast<Veltra::LLMErrType>(options.type));
    comment->SetComments(jsonEscaped(options.comment, "the comment"));
    if (options.country) comment->SetCountry(jsonEscaped(*options.country, "the country"));
    comment->SetPictures(loadPictures(options.pictures));
    return comment;
}

/// Bodies contain the user's words, and image keys just as the gateway gave them: a terminal might
/// obey control sequences in them.
OutputElsewhere::Target targetOfBodies(int logLevel) {
    return logLevel > kDetailLevel || errorGoesToTerminal()
               ? OutputElsewhere::Target::Nowhere
               : OutputElsewhere::Target::StandardError;
}

std::string logInAndSubmit(const SubmitOptions& options) {
    // Whatever is wrong with the arguments is reported before the first exchange.
    const auto credentials = loadCredentials(options.common.credentialsFile);
    const auto comment = makeComment(options);
    Oak::Net::SetHttpClientOptions(options.common.http);
    const Records records(options.common.logLevel, credentials);
    const Login login(options.common.domain, credentials);
    if (const auto id = submitFeedback(comment, targetOfBodies(options.common.logLevel)))
        return *id;
    throw Failure("the feedback was not accepted", Veltra::Veltra_LastCall());
}

std::string logInAndCancel(const CancelOptions& options) {
    const auto credentials = loadCredentials(options.common.credentialsFile);
    const std::string id = jsonEscaped(options.feedbackId, "the feedback id");
    Oak::Net::SetHttpClientOptions(options.common.http);
    const Records records(options.common.logLevel, credentials);
    const Login login(options.common.domain, credentials);
    if (!Veltra::Veltra_CancleComments(id))
        throw Failure("not withdrawn", Veltra::Veltra_LastCall());
    return options.feedbackId;
}

/// Runs `act` and prints the feedback id that it returns.
int report(const CommonOptions& options, const std::function<std::string()>& act) {
    try {
        const std::string id = act();
        const auto callReport = Veltra::Veltra_LastCall();
        if (options.json)
            printJson(true, [&](JsonWriter& writer) {
                writer.member("feedbackId", id);
                writer.report(callReport);
            });
        else
            printAnswer(id);
        return kSuccess;
    } catch (const Failure& failure) {
        reportFailure(options.json, failure);
        return kFailure;
    }
}

void addCommon(CLI::App& command, CommonOptions& options) {
    addDomain(command, options);
    addConnection(command, options);
    addCredentials(command, options);
    addLogLevel(command, options);
    addJson(command, options);
}

void declareSubmit(CLI::App& command, SubmitOptions& options) {
    command.footer(std::string(kSubmitEnd) + kKeysHelp + kSubmitOutcome);
    command
        .add_option(
            "--trace-id", options.traceId,
            "Trace id of the query whose answer is rated, as \"veltra query\" shows it (required)")
        ->option_text("ID")
        ->required();
    command
        .add_option(
            "--satisfaction", options.satisfaction,
            "How satisfied the user is, as numbered by the gateway's operators (default: 0)")
        ->option_text("N");
    command
        .add_option("--type", options.type,
                    "What is wrong, as numbered by the gateway's operators (default: 0)")
        ->option_text("N");
    command.add_option("--comment", options.comment, "The user's words")->option_text("TEXT");
    command.add_option("--country", options.country, "The user's country (default: unKnown)")
        ->option_text("CC");
    command
        .add_option("--picture", options.pictures, "JPEG files that show what is meant; repeatable")
        ->option_text("FILE...")
        ->check(existingFile());
    addCommon(command, options.common);
}

void declareCancel(CLI::App& command, CancelOptions& options) {
    command.footer(std::string(kCancelEnd) + kKeysHelp + kCancelOutcome);
    command.add_option("ID", options.feedbackId, "The feedback id, as printed by its submission")
        ->required();
    addCommon(command, options.common);
}

}  // namespace

void addFeedback(CLI::App& app, Command& chosen) {
    auto* feedback =
        app.add_subcommand("feedback", "Submit a user's feedback on an answer, or withdraw it");
    feedback->footer(kFeedbackEnd);
    feedback->require_subcommand(1);

    const auto submission = std::make_shared<SubmitOptions>();
    auto* submit = feedback->add_subcommand("submit", "Log in, submit feedback, print its id");
    declareSubmit(*submit, *submission);
    submit->callback([submission, &chosen] {
        chosen = [submission] {
            return report(submission->common, [&] { return logInAndSubmit(*submission); });
        };
    });

    const auto withdrawal = std::make_shared<CancelOptions>();
    auto* cancel = feedback->add_subcommand("cancel", "Log in, withdraw feedback, print its id");
    declareCancel(*cancel, *withdrawal);
    cancel->callback([withdrawal, &chosen] {
        chosen = [withdrawal] {
            return report(withdrawal->common, [&] { return logInAndCancel(*withdrawal); });
        };
    });
}

}  // namespace tool

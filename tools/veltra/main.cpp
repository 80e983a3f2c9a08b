// veltra: the library's functions on the command line.

#include "commands.h"
#include "output.h"
#include "parser_words.h"
#include "process.h"

#include <Veltra/Version.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <exception>
#include <iostream>
#include <string>
#include <string_view>

namespace {

constexpr const char* kAbout =
    "Queries language models through a gateway, and helps to develop hosts of the Veltra "
    "library.\n"
    "Results go to standard output, everything else to standard error.";

constexpr const char* kProgramEnd =
    "To try it on this machine:\n"
    "  veltra gateway --port 8080 --key demo:demo &\n"
    "  export VELTRA_APP_KEY=demo VELTRA_SECRET_KEY=demo\n"
    "  veltra query greeting name=Ada place=Veltra --domain http://127.0.0.1:8080\n"
    "\nKeys are never given on the command line, where other users can see them: they come from a\n"
    "file (--credentials) or from the variables VELTRA_APP_KEY and VELTRA_SECRET_KEY.\n"
    "See \"veltra SUBCOMMAND --help\" for details and examples, and \"man veltra\" for "
    "everything.\n"
    "\nExit status:\n"
    "  0    success\n"
    "  1    refused or failed: gateway not reached, login refused, query refused or screened,\n"
    "       feedback not accepted, time expression without a result, demo step deviated,\n"
    "       output lost\n"
    "  2    wrong usage: options, missing or malformed keys, a file that can't be read\n"
    "  126  gateway: veltra-gateway can't be run\n"
    "  127  gateway: veltra-gateway was not found\n"
    "  130  query was interrupted; the signal itself ends other subcommands\n"
    "Once veltra-gateway runs, its exit status is that of gateway.";

/// The loaded library may have another version than the program.
std::string versionText() {
    const std::string loaded = Veltra::Veltra_GetVersion();
    const bool isOurs = loaded == VELTRA_VERSION;
    return "veltra " VELTRA_VERSION + (isOurs ? "" : ", library " + loaded);
}

/// Whether the result is wanted as JSON, even if the command line can't be parsed.
bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i)
        if (std::string_view(argv[i]) == "--json") return true;
    return false;
}

int fail(bool json, const std::string& message, int status) {
    tool::complain("veltra: " + message);
    if (json) tool::reportFailure(true, tool::Failure(message));
    return status;
}

/// The subcommand that the command line got to.
const CLI::App& reached(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : reached(*chosen.back());
}

std::string fullName(const CLI::App& app) {
    const auto* const above = app.get_parent();
    return above == nullptr ? app.get_name() : fullName(*above) + ' ' + app.get_name();
}

/// The parser reports missing arguments before unknown ones, which are often the cause.
std::string reasonOf(const CLI::App& command, const CLI::ParseError& error) {
    const auto unknown = command.remaining();
    if (unknown.empty()) return wordsOf(error);
    if (unknown.front().rfind('-', 0) == 0) return "there is no option " + unknown.front();
    const bool lacksSubcommand = command.get_require_subcommand_min() > 0;
    return lacksSubcommand ? "there is no subcommand " + unknown.front() : wordsOf(error);
}

int failToParse(bool json, const CLI::App& app, const CLI::ParseError& error) {
    const auto& command = reached(app);
    const bool isBare = command.get_require_subcommand_min() > 0 && command.remaining().empty();
    if (isBare && !json) {
        std::cerr << app.help();
        return tool::kWrongUsage;
    }
    const std::string hint = "; see " + fullName(command) + " --help";
    return fail(json, reasonOf(command, error) + hint, tool::kWrongUsage);
}

int run(bool json, int argc, char** argv) {
    tool::Command chosen;
    CLI::App app(kAbout, "veltra");
    app.footer(kProgramEnd);
    app.set_version_flag("--version", versionText());
    app.require_subcommand(1);
    tool::addQuery(app, chosen);
    tool::addFeedback(app, chosen);
    tool::addProbe(app, chosen);
    tool::addPhraseKey(app, chosen);
    tool::addTime(app, chosen);
    tool::addDemo(app, chosen);
    tool::addGateway(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        return failToParse(json, app, error);
    }
    return chosen();
}

int runGuarded(int argc, char** argv) {
    const bool json = wantsJson(argc, argv);
    try {
        return run(json, argc, argv);
    } catch (const tool::UsageError& error) {
        return fail(json, error.what(), tool::kWrongUsage);
    } catch (const std::exception& error) {
        return fail(json, error.what(), tool::kFailure);
    }
}

}  // namespace

int main(int argc, char** argv) {
    tool::CommandLine line(argc, argv);
    // The gateway must find signals and descriptors just as this program found them.
    if (tool::isForGateway(line.count(), line.values())) {
        const int notRun = tool::runGateway(line.count(), line.values());
        tool::finishOutput();
        return notRun;
    }
    tool::prepareStandardStreams();
    const int status = runGuarded(line.count(), line.values());
    const bool delivered = tool::finishOutput();
    return status == tool::kSuccess && !delivered ? tool::kFailure : status;
}

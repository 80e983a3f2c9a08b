// veltra: the library's functions on the command line.

#include "commands.h"
#include "output.h"
#include "process_posix.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <exception>
#include <iostream>

namespace {

constexpr const char* kAbout =
    "Queries language models through a gateway.\n"
    "Results go to standard output, everything else to standard error.";

constexpr const char* kEnd =
    "Credentials never stand on the command line, where other users see them: they come from a\n"
    "file (--credentials) or from the variables VELTRA_APP_KEY and VELTRA_SECRET_KEY.\n"
    "\"veltra SUBCOMMAND --help\" says more, with examples.\n"
    "Exit status: 0 success, 1 refused or failed, 2 wrong usage.";

int run(int argc, char** argv) {
    tool::Command chosen;
    CLI::App app(kAbout, "veltra");
    app.footer(kEnd);
    app.set_version_flag("--version", "veltra " VELTRA_PROGRAM_VERSION);
    app.require_subcommand(1);
    tool::addQuery(app, chosen);
    tool::addFeedback(app, chosen);
    tool::addProbe(app, chosen);
    tool::addPhraseKey(app, chosen);
    tool::addTime(app, chosen);
    tool::addDemo(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tool::kSuccess : tool::kWrongUsage;
    }
    return chosen();
}

int runGuarded(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const tool::UsageError& error) {
        tool::complain(std::string("veltra: ") + error.what());
        return tool::kWrongUsage;
    } catch (const std::exception& error) {
        tool::complain(std::string("veltra: ") + error.what());
        return tool::kFailure;
    }
}

}  // namespace

int main(int argc, char** argv) {
    tool::prepareStandardStreams();
    const int status = runGuarded(argc, argv);
    const bool delivered = tool::finishOutput();
    return status == tool::kSuccess && !delivered ? tool::kFailure : status;
}

#pragma once

#include <CLI/App.hpp>

#include <functional>

namespace tool {

/// What the command line chose; returns the exit status.
using Command = std::function<int()>;

/// Each adds a subcommand that puts itself into `chosen` when the command line names it.
void addDemo(CLI::App& app, Command& chosen);
void addFeedback(CLI::App& app, Command& chosen);
void addPhraseKey(CLI::App& app, Command& chosen);
void addProbe(CLI::App& app, Command& chosen);
void addQuery(CLI::App& app, Command& chosen);
void addTime(CLI::App& app, Command& chosen);

/// Adds the subcommand "gateway" to the help; it never gets as far as the parser.
void addGateway(CLI::App& app);
/// Whether the command line belongs to veltra-gateway.
bool isForGateway(int argc, char** argv);
/// Puts veltra-gateway into the place of this program, its arguments untouched. Returns the exit
/// status when it can't be run.
int runGateway(int argc, char** argv);

}  // namespace tool

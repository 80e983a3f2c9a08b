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

}  // namespace tool

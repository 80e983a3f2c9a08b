#pragma once

#include <Oak/Net/HttpClientOptions.h>

#include <CLI/App.hpp>

#include <string>

namespace tool {

inline constexpr int kDefaultLogLevel = 4;

/// What several subcommands have in common. Each adds the options that make sense for it.
struct CommonOptions {
    std::string domain;
    std::string credentialsFile;
    Oak::Net::HttpClientOptions http;
    int logLevel = kDefaultLogLevel;
    bool json = false;
};

void addDomain(CLI::App& command, CommonOptions& options);
/// Trust, proxy, limits.
void addConnection(CLI::App& command, CommonOptions& options);
void addCredentials(CLI::App& command, CommonOptions& options);
CLI::Option* addLogLevel(CLI::App& command, CommonOptions& options);
void addJson(CLI::App& command, CommonOptions& options);

/// Checks a text for scheme and host and takes slashes at its end away: paths are appended to it.
CLI::Validator gatewayUrl();

}  // namespace tool

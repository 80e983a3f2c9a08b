#pragma once

#include <Oak/Net/HttpClientOptions.h>

#include <CLI/App.hpp>

#include <string>

namespace tool {

/// Levels of the library's log records.
inline constexpr int kDetailLevel = 2;
inline constexpr int kDefaultLogLevel = 4;
inline constexpr int kNoRecords = 6;

/// For the help of subcommands that log in.
inline constexpr const char* kKeysHelp =
    "\nKeys:\n"
    "  --credentials FILE, or the variables VELTRA_APP_KEY and VELTRA_SECRET_KEY. The file is\n"
    "  {\"keys\":[{\"appKey\":\"..\",\"secretKey\":\"..\"}],\"productVersion\":\"..\"}\n"
    "  The pairs are tried in this order; productVersion is optional. Let no one else read it.\n";

/// What several subcommands have in common. Each adds the options that apply to it.
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
/// Accepts a level's name or number.
CLI::Option* addLogLevel(CLI::App& command, CommonOptions& options);
void addJson(CLI::App& command, CommonOptions& options);

/// Checks a text for scheme and host, and removes trailing slashes: paths are appended to it.
CLI::Validator gatewayUrl();

}  // namespace tool

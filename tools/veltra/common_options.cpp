#include "common_options.h"

#include "files.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace tool {

namespace {

constexpr const char* kConnection = "Connection";

bool hasHost(const std::string& url, const std::string& scheme) {
    return url.size() > scheme.size() && url.compare(0, scheme.size(), scheme) == 0 &&
           url[scheme.size()] != '/';
}

void setTimeLimit(Oak::Net::HttpClientOptions& http, std::uint32_t milliseconds) {
    http.totalTimeoutMs = milliseconds;
    http.connectTimeoutMs = std::min(http.connectTimeoutMs, milliseconds);
}

CLI::Validator levelName() {
    return CLI::Validator(
        [](std::string& level) -> std::string {
            constexpr std::array<const char*, 5> kNames = {"detail", "progress", "warning", "error",
                                                           "none"};
            for (std::size_t i = 0; i < kNames.size(); ++i) {
                const std::string number = std::to_string(kDetailLevel + static_cast<int>(i));
                if (level == kNames[i]) level = number;
                if (level == number) return {};
            }
            return "needs detail, progress, warning, error, none, or a number from 2 to 6";
        },
        "LEVEL");
}

}  // namespace

CLI::Validator gatewayUrl() {
    return CLI::Validator(
        [](std::string& url) -> std::string {
            url.erase(url.find_last_not_of('/') + 1);
            if (hasHost(url, "https://") || hasHost(url, "http://")) return {};
            return "needs a URL such as https://gateway.example";
        },
        "URL");
}

void addDomain(CLI::App& command, CommonOptions& options) {
    command
        .add_option("--domain", options.domain,
                    "Gateway to log in at, such as https://gateway.example (default: the built-in "
                    "endpoints)")
        ->group(kConnection)
        ->option_text("URL")
        ->transform(gatewayUrl());
}

void addConnection(CLI::App& command, CommonOptions& options) {
    auto& http = options.http;
    command
        .add_option("--ca-file", http.caFile,
                    "Trusted certificates in PEM form, in place of the system's")
        ->group(kConnection)
        ->option_text("FILE")
        ->check(existingFile());
    command
        .add_option("--proxy", http.proxy,
                    "Proxy URL, or \"direct\" for none (default: that of the environment)")
        ->group(kConnection)
        ->option_text("URL");
    command
        .add_option_function<std::uint32_t>(
            "--timeout-ms", [&http](std::uint32_t limit) { setTimeLimit(http, limit); },
            "Time limit of each exchange in milliseconds (default: 120000)")
        ->group(kConnection)
        ->option_text("N")
        ->check(CLI::Range(std::uint32_t{1}, std::numeric_limits<std::uint32_t>::max()));
    command
        .add_flag("--allow-plain-http", http.allowPlainHttp,
                  "Allow http to other hosts; anyone on the network path can then read it")
        ->group(kConnection);
}

void addCredentials(CLI::App& command, CommonOptions& options) {
    command
        .add_option("--credentials", options.credentialsFile,
                    "JSON file with the key pairs (default: the variables VELTRA_APP_KEY and "
                    "VELTRA_SECRET_KEY)")
        ->option_text("FILE")
        ->check(existingFile());
}

CLI::Option* addLogLevel(CLI::App& command, CommonOptions& options) {
    return command
        .add_option(
            "--log-level", options.logLevel,
            "Lowest level of the library's log records on standard error: detail (2), progress "
            "(3), warning (4), error (5) or none (6) (default: warning). The first two show query "
            "texts")
        ->option_text("LEVEL")
        ->transform(levelName());
}

void addJson(CLI::App& command, CommonOptions& options) {
    command.add_flag("--json", options.json,
                     "Print the result, or the failure, as one line of JSON on standard output");
}

}  // namespace tool

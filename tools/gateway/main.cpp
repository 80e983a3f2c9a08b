// veltra-gateway: the local gateway as a program.

#include "gateway.h"
#include "json.h"
#include "signals_posix.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

constexpr const char* kAbout =
    "A gateway on this machine: it hands out tokens, renders prompt templates, takes feedback\n"
    "with pictures, and fails on request. Its page at / shows this in a browser.\n"
    "It runs until SIGINT, SIGTERM or POST /control/stop, and keeps nothing on disk.";

constexpr const char* kExamples =
    "Examples:\n"
    "  veltra-gateway --key demo:secret\n"
    "  veltra-gateway --port 8443 --tls --ca-out ca.pem --key demo:secret\n"
    "  veltra-gateway --fault path=/api/tmqgw/aillm,kind=reset-in-body,number=10,times=2\n"
    "Faults (kind=): status delay close reset reset-in-headers reset-in-body cut-body stall\n"
    "  stall-in-body garbage bad-json empty-body reject-token refuse; with path= (a prefix, or\n"
    "  exact with a $ at its end), number=, code=, times= and, last, text=.\n"
    "  docs/local-gateway.md explains each of them.\n"
    "JSON: {\"ok\":true,\"baseUrl\":\"..\"} once it listens; {\"ok\":false,\"message\":\"..\"} if "
    "it can't.\n"
    "Exit status: 0 ended on request, 1 could not start, 2 usage.";

struct Arguments {
    gateway::Options options;
    std::vector<std::string> keys;
    std::string keysFile;
    std::string templatesFile;
    std::vector<std::string> faults;
    std::vector<gateway::Fault> parsedFaults;
    std::string caFile;
    std::string readyFile;
    bool json = false;
};

/// One line of JSON on standard output, at once: whoever started the gateway waits for it.
void printJson(bool ok, std::string_view name, std::string_view text) {
    rapidjson::StringBuffer buffer;
    gateway::JsonWriter writer(buffer);
    writer.StartObject();
    writer.Key("ok");
    writer.Bool(ok);
    gateway::write(writer, name, text);
    writer.EndObject();
    std::cout << buffer.GetString() << std::endl;
}

int fail(bool json, const std::string& reason) {
    std::cerr << "veltra-gateway: " << reason << '\n';
    if (json) printJson(false, "message", reason);
    return kFailed;
}

/// Whether JSON is wanted, even if the command line can't be understood.
bool wantsJson(int argc, char** argv) {
    return std::find(argv + 1, argv + argc, std::string_view("--json")) != argv + argc;
}

std::optional<std::string> readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) return std::nullopt;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Readers find either nothing or the whole text.
void writeFile(const std::string& name, const std::string& text) {
    const std::string part = name + ".part" + std::to_string(getpid());
    std::ofstream file(part, std::ios::binary);
    file << text;
    file.close();
    std::error_code error;
    if (file) std::filesystem::rename(part, name, error);
    if (file && !error) return;
    std::filesystem::remove(part, error);
    throw std::runtime_error("cannot write " + name);
}

void addKey(Arguments& arguments, const std::string& pair) {
    const auto colon = pair.find(':');
    // The text may hold a secret, so the message doesn't show it.
    if (colon == 0 || colon == pair.npos) throw CLI::ValidationError("key", "expected APP:SECRET");
    arguments.options.keys.push_back({pair.substr(0, colon), pair.substr(colon + 1)});
}

void addKeysFile(Arguments& arguments) {
    std::ifstream file(arguments.keysFile);
    if (!file) throw CLI::ValidationError("--keys-file", "cannot read " + arguments.keysFile);
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line.front() != '#') addKey(arguments, line);
}

void loadTemplates(Arguments& arguments) {
    const auto text = readFile(arguments.templatesFile);
    std::string reason = "cannot read it";
    auto templates = text ? gateway::parseTemplates(*text, reason) : std::nullopt;
    if (!templates)
        throw CLI::ValidationError("--templates", arguments.templatesFile + ": " + reason);
    arguments.options.templates = std::move(*templates);
}

void parseFaults(Arguments& arguments) {
    for (const auto& text : arguments.faults) {
        std::string reason;
        const auto fault = gateway::parseFault(text, reason);
        if (!fault) throw CLI::ValidationError("--fault", reason);
        arguments.parsedFaults.push_back(*fault);
    }
}

void declare(CLI::App& app, Arguments& arguments) {
    auto& options = arguments.options;
    app.footer(kExamples);
    app.add_option("--address", options.address, "Numeric address to listen on")
        ->capture_default_str();
    app.add_option("--port", options.port, "Port; 0: one that the system picks")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--tls", options.tls, "HTTPS, with an authority made at start");
    app.add_option("--ca-out", arguments.caFile, "File for the authority to trust (PEM)")
        ->needs("--tls");
    app.add_option("--key", arguments.keys, "APP:SECRET, a pair that gets a token; repeatable")
        ->allow_extra_args(false);
    app.add_option("--keys-file", arguments.keysFile, "File with an APP:SECRET on each line");
    app.add_option("--area-domain", options.areaDomain,
                   "Base URL that token answers send clients to (default: its own)");
    app.add_option("--storage-domain", options.storageDomain,
                   "Base URL that upload URLs begin with (default: its own)");
    app.add_option_function<std::int32_t>(
           "--upload-lifetime",
           [&options](std::int32_t seconds) {
               options.uploadLifetime = std::chrono::seconds(seconds);
           },
           "Seconds that an upload URL is valid; 0: late as soon as made (default: 600)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--templates", arguments.templatesFile,
                   "JSON file in place of the three shipped");
    app.add_option("--fault", arguments.faults, "A fault, such as kind=status,number=503,times=1")
        ->allow_extra_args(false);
    app.add_option("--ready-file", arguments.readyFile,
                   "File that appears, holding the base URL, once the gateway listens");
    app.add_flag("--json", arguments.json,
                 "Where it listens, or why it can't, as one line of JSON on standard output");
}

void complete(Arguments& arguments) {
    for (const auto& pair : arguments.keys)
        addKey(arguments, pair);
    if (!arguments.keysFile.empty()) addKeysFile(arguments);
    if (arguments.options.keys.empty()) {
        std::cerr << "veltra-gateway: no --key given, accepting demo:demo\n";
        arguments.options.keys.push_back({"demo", "demo"});
    }
    if (!arguments.templatesFile.empty()) loadTemplates(arguments);
    parseFaults(arguments);
}

bool isLoopback(const std::string& address) {
    return address.compare(0, 4, "127.") == 0 || address == "::1";
}

int run(const Arguments& arguments, const gateway::EndSignal& end) {
    const auto& options = arguments.options;
    if (!isLoopback(options.address))
        std::cerr << "veltra-gateway: warning: " << options.address
                  << " may be reached from other machines\n";
    gateway::Gateway gateway(options);
    for (const auto& fault : arguments.parsedFaults)
        gateway.addFault(fault);
    if (!gateway.start()) throw std::runtime_error(gateway.reason());
    if (!arguments.caFile.empty()) writeFile(arguments.caFile, gateway.caPem());
    if (!arguments.readyFile.empty()) writeFile(arguments.readyFile, gateway.baseUrl() + '\n');
    if (arguments.json)
        printJson(true, "baseUrl", gateway.baseUrl());
    else
        std::cout << "listening on " << gateway.baseUrl() << std::endl;
    end.wait();
    gateway.stop();
    std::error_code gone;
    if (!arguments.readyFile.empty()) std::filesystem::remove(arguments.readyFile, gone);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const gateway::EndSignal end;
    Arguments arguments;
    arguments.options.recordAnswers = true;
    arguments.options.onStopRequest = gateway::EndSignal::raise;
    CLI::App app(kAbout, "veltra-gateway");
    try {
        declare(app, arguments);
        app.parse(argc, argv);
        complete(arguments);
        return run(arguments, end);
    } catch (const CLI::ParseError& error) {
        if (app.exit(error) == 0) return 0;
        if (wantsJson(argc, argv)) printJson(false, "message", error.what());
        return kUsage;
    } catch (const std::exception& error) {
        return fail(arguments.json, error.what());
    }
}

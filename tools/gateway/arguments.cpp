#include "arguments.h"

#include "model_url.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <optional>
#include <sstream>
#include <utility>

namespace gateway {
namespace {

constexpr const char* kExamples =
    "Examples:\n"
    "  veltra-gateway --key demo:secret\n"
    "  veltra-gateway --port 8443 --tls --ca-out ca.pem --key demo:secret\n"
    "  veltra-gateway --fault on=query,kind=reset-in-body,number=10,times=2\n"
    "  veltra-gateway --model-url http://127.0.0.1:11434/v1 --model llama3.2\n"
    "Faults (kind=): status delay close reset reset-in-headers reset-in-body cut-body stall\n"
    "  stall-in-body garbage bad-json empty-body reject-token refuse; with on= (query probe token\n"
    "  slots feedback withdrawal push), path= (a prefix, or exact if it ends with $), number=,\n"
    "  code=, times= and, last, text=. docs/local-gateway.md explains each of them.\n"
    "JSON: {\"ok\":true,\"baseUrl\":\"..\"} once it listens; {\"ok\":false,\"message\":\"..\"} if "
    "it can't.\n"
    "Exit status: 0 ended on request, 1 could not start, 2 wrong usage.";

std::optional<std::string> readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) return std::nullopt;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void addKey(Arguments& arguments, const std::string& pair) {
    const auto colon = pair.find(':');
    // The text may contain a secret, so the message doesn't show it.
    if (colon == 0 || colon == pair.npos)
        throw CLI::ValidationError("--key", "expected APP:SECRET");
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
    auto templates = text ? parseTemplates(*text, reason) : std::nullopt;
    if (!templates)
        throw CLI::ValidationError("--templates", arguments.templatesFile + ": " + reason);
    arguments.options.templates = std::move(*templates);
}

void parseFaults(Arguments& arguments) {
    for (const auto& text : arguments.faults) {
        std::string reason;
        const auto fault = parseFault(text, reason);
        if (!fault) throw CLI::ValidationError("--fault", reason);
        arguments.parsedFaults.push_back(*fault);
    }
}

// A key in a file may end with a line break, as editors leave it.
std::string readModelKey(const std::string& name) {
    auto key = readFile(name);
    if (!key) throw CLI::ValidationError("--model-key-file", "cannot read " + name);
    if (!key->empty() && key->back() == '\n') key->pop_back();
    if (!key->empty() && key->back() == '\r') key->pop_back();
    if (key->empty()) throw CLI::ValidationError("--model-key-file", name + " contains no key");
    return *key;
}

ModelUrl modelUrlOf(const ModelOptions& model) {
    try {
        return parseModelUrl(model.url);
    } catch (const std::exception& problem) {
        throw CLI::ValidationError("--model-url", problem.what());
    }
}

void completeModel(Arguments& arguments) {
    auto& model = arguments.options.model;
    if (model.url.empty()) return;
    const auto url = modelUrlOf(model);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
    const char* const key = std::getenv("VELTRA_MODEL_KEY");
    if (!arguments.modelKeyFile.empty())
        model.key = readModelKey(arguments.modelKeyFile);
    else if (key != nullptr)
        model.key = key;
    if (!model.key.empty() && !url.tls && !isLoopback(url.host) && url.host != "localhost")
        std::cerr << "veltra-gateway: warning: the model's key goes to " << url.host
                  << " over plain HTTP\n";
}

void declareModel(CLI::App& app, Arguments& arguments) {
    auto& model = arguments.options.model;
    auto* url = app.add_option("--model-url", model.url,
                               "Let a model answer: URL of a server with the chat completions "
                               "protocol, such as http://127.0.0.1:11434/v1");
    auto* name = app.add_option("--model", model.name, "Name of the model, as its server knows it");
    url->needs(name);
    const auto add = [&](const std::string& option, auto& value, const char* help) {
        return app.add_option(option, value, help)->needs(url);
    };
    name->needs(url);
    add("--model-key-file", arguments.modelKeyFile,
        "File with the server's key (default: the variable VELTRA_MODEL_KEY, if it is set)");
    add("--model-ca-file", model.caFile, "Authorities to trust for its certificate (PEM)");
    app.add_option_function<double>(
           "--model-timeout",
           [&model](double seconds) {
               model.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
           },
           "Time limit of a query in seconds, its wait for a turn included (default: 100)")
        ->needs(url)
        ->check(CLI::Range(0.001, 86400.0));
    add("--model-concurrency", model.concurrency, "Most requests that the model gets at a time")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
}

}  // namespace

bool isLoopback(const std::string& address) {
    return address.compare(0, 4, "127.") == 0 || address == "::1";
}

void declareArguments(CLI::App& app, Arguments& arguments) {
    auto& options = arguments.options;
    app.footer(kExamples);
    app.add_option("--address", options.address, "Numeric address to listen on")
        ->capture_default_str();
    app.add_option("--port", options.port, "Port; 0: picked by the system")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--tls", options.tls, "Serve HTTPS, with an authority created at start");
    app.add_option("--ca-out", arguments.caFile,
                   "File to write the authority to, which clients must trust (PEM)")
        ->needs("--tls");
    app.add_option("--key", arguments.keys, "Key pair APP:SECRET to accept; repeatable")
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
           "Seconds that an upload URL is valid; 0: expired from the start (default: 600)")
        ->check(CLI::Range(0, std::numeric_limits<std::int32_t>::max()));
    app.add_option("--templates", arguments.templatesFile,
                   "JSON file with prompt templates, in place of the three built in");
    declareModel(app, arguments);
    app.add_option("--fault", arguments.faults, "A fault, such as kind=status,number=503,times=1")
        ->allow_extra_args(false);
    app.add_option("--ready-file", arguments.readyFile,
                   "File to create, with the base URL in it, once the gateway listens");
    app.add_flag("--json", arguments.json,
                 "Say where it listens, or why it can't, as one line of JSON on standard output");
}

void completeArguments(Arguments& arguments) {
    for (const auto& pair : arguments.keys)
        addKey(arguments, pair);
    if (!arguments.keysFile.empty()) addKeysFile(arguments);
    if (arguments.options.keys.empty()) {
        std::cerr << "veltra-gateway: no --key given, accepting demo:demo\n";
        arguments.options.keys.push_back({"demo", "demo"});
    }
    if (!arguments.templatesFile.empty()) loadTemplates(arguments);
    completeModel(arguments);
    parseFaults(arguments);
}

}  // namespace gateway

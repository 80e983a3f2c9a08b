// veltra-gateway: the local gateway as a program.

#include "arguments.h"
#include "gateway.h"
#include "json.h"
#include "parser_words.h"
#include "signals_posix.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

constexpr const char* kAbout =
    "A gateway on this machine. It issues tokens, renders prompt templates and lets a model "
    "answer\n"
    "them if there is one, accepts feedback with pictures, and fails on request. Its page at /\n"
    "shows all of this in a browser.\n"
    "It runs until SIGINT, SIGTERM or POST /control/stop, and stores nothing on disk.";

/// Prints one line of JSON to standard output at once: whoever started the gateway waits for it.
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

/// Whether JSON is wanted, even if the command line can't be parsed.
bool wantsJson(int argc, char** argv) {
    return std::find(argv + 1, argv + argc, std::string_view("--json")) != argv + argc;
}

/// Readers find either no file or the whole text.
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

int run(const gateway::Arguments& arguments, const gateway::EndSignal& end) {
    const auto& options = arguments.options;
    if (!gateway::isLoopback(options.address))
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
    gateway::Arguments arguments;
    arguments.options.recordAnswers = true;
    arguments.options.onStopRequest = gateway::EndSignal::raise;
    CLI::App app(kAbout, "veltra-gateway");
    try {
        declareArguments(app, arguments);
        app.parse(argc, argv);
        completeArguments(arguments);
        return run(arguments, end);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        const std::string reason = wordsOf(error);
        std::cerr << "veltra-gateway: " << reason << "; see veltra-gateway --help\n";
        if (wantsJson(argc, argv)) printJson(false, "message", reason);
        return kUsage;
    } catch (const std::exception& error) {
        return fail(arguments.json, error.what());
    }
}

#include "commands.h"
#include "output.h"
#include "process.h"

#include <CLI/App.hpp>

#include <algorithm>
#include <string_view>
#include <vector>

namespace tool {

namespace {

constexpr const char* kName = "gateway";

}  // namespace

void addGateway(CLI::App& app) {
    app.add_subcommand(
        kName, "Run veltra-gateway, a gateway on this machine, with the arguments that follow");
}

bool isForGateway(int argc, char** argv) {
    return argc > 1 && std::string_view(argv[1]) == kName;
}

int runGateway(int argc, char** argv) {
    const std::vector<char*> arguments(argv + 2, argv + argc);
    const int status = becomeProgram("veltra-gateway", arguments);
    const bool json = std::find(arguments.begin(), arguments.end(), std::string_view("--json")) !=
                      arguments.end();
    if (json) reportFailure(true, Failure("veltra-gateway cannot be run"));
    return status;
}

}  // namespace tool

#include "commands.h"
#include "process.h"

#include <CLI/App.hpp>

#include <string_view>
#include <vector>

namespace tool {

namespace {

constexpr const char* kName = "gateway";

}  // namespace

void addGateway(CLI::App& app) {
    app.add_subcommand(kName, "Run veltra-gateway, a gateway on this machine, with what follows");
}

bool isForGateway(int argc, char** argv) {
    return argc > 1 && std::string_view(argv[1]) == kName;
}

int runGateway(int argc, char** argv) {
    return becomeProgram("veltra-gateway", std::vector<char*>(argv + 2, argv + argc));
}

}  // namespace tool

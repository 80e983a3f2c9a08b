#pragma once

#include "gateway.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace gateway {

/// The command line of the program.
struct Arguments {
    Options options;
    std::vector<std::string> keys;
    std::string keysFile;
    std::string templatesFile;
    std::string modelKeyFile;
    std::vector<std::string> faults;
    std::vector<Fault> parsedFaults;
    std::string caFile;
    std::string readyFile;
    bool json = false;
};

bool isLoopback(const std::string& address);

void declareArguments(CLI::App& app, Arguments& arguments);

/// Makes of what was given what the gateway needs: reads the files and the environment. Throws
/// CLI::ValidationError.
void completeArguments(Arguments& arguments);

}  // namespace gateway

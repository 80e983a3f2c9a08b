#pragma once

#include <CLI/App.hpp>

#include <filesystem>
#include <string>

namespace tool {

/// The path that a text names: UTF-8, as all texts of the program are, whatever the system's own
/// code page is.
std::filesystem::path pathOf(const std::string& text);

/// Checks that a text names something that is there, and no folder.
CLI::Validator existingFile();

}  // namespace tool

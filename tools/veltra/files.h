#pragma once

#include <CLI/App.hpp>

#include <cstddef>
#include <filesystem>
#include <istream>
#include <string>
#include <string_view>

namespace tool {

/// The most that is read of one file.
inline constexpr std::size_t kMostFileBytes = std::size_t{32} << 20;

/// The path that a text names: UTF-8, as all texts of the program are, whatever the system's own
/// code page is.
std::filesystem::path pathOf(const std::string& text);

/// Checks that a text names something that is there, and no folder.
CLI::Validator existingFile();

/// What some editors put in front of a text in UTF-8; empty when it isn't there.
std::string_view byteOrderMarkOf(std::string_view text);

/// All that a stream has left. Throws UsageError, with the stream's name, when it can't be read or
/// has more than may be.
std::string readToEnd(std::istream& stream, const std::string& name);

/// All of a file. Throws UsageError.
std::string readFile(const std::string& file);

}  // namespace tool

#include "files.h"

#include "output.h"

#include <fstream>
#include <system_error>

namespace tool {

std::filesystem::path pathOf(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

CLI::Validator existingFile() {
    return CLI::Validator(
        [](std::string& file) -> std::string {
            std::error_code error;
            const auto status = std::filesystem::status(pathOf(file), error);
            if (std::filesystem::is_directory(status)) return "File is a directory: " + file;
            if (error || !std::filesystem::exists(status)) return "File does not exist: " + file;
            return {};
        },
        "FILE");
}

std::string_view byteOrderMarkOf(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return text.substr(0, text.substr(0, kMark.size()) == kMark ? kMark.size() : 0);
}

// In pieces: a pipe has no size, and may never end.
std::string readToEnd(std::istream& stream, const std::string& name) {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    std::string bytes;
    while (stream && bytes.size() <= kMostFileBytes) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kPiece);
        stream.read(bytes.data() + before, kPiece);
        bytes.resize(before + static_cast<std::size_t>(stream.gcount()));
    }
    if (bytes.size() > kMostFileBytes)
        throw UsageError(name + ": " + std::to_string(kMostFileBytes >> 20) + " MiB at most");
    if (!stream.eof()) throw UsageError("cannot read " + name);
    return bytes;
}

std::string readFile(const std::string& file) {
    std::ifstream stream(pathOf(file), std::ios::binary);
    return readToEnd(stream, file);
}

}  // namespace tool

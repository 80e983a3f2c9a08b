#include "files.h"

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
            if (std::filesystem::is_directory(status))
                return "File is actually a directory: " + file;
            if (error || !std::filesystem::exists(status)) return "File does not exist: " + file;
            return {};
        },
        "FILE");
}

}  // namespace tool

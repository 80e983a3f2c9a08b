#include "pictures.h"

#include "files.h"
#include "output.h"

#include <Veltra/Base64.h>

namespace tool {

namespace {

constexpr std::string_view kJpegStart = "\xFF\xD8\xFF";

std::string loadPicture(const std::string& file) {
    std::string bytes = readFile(file);
    if (bytes.empty()) throw UsageError("empty picture: " + file);
    if (bytes.compare(0, kJpegStart.size(), kJpegStart) != 0)
        complain("warning: " + file + " is not a JPEG file, but is sent as one");
    return bytes;
}

}  // namespace

std::unordered_set<std::string> loadPictures(const std::vector<std::string>& files) {
    if (files.size() > kMostPictures)
        throw UsageError(std::to_string(kMostPictures) + " pictures at most");
    std::unordered_set<std::string> pictures;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string bytes = loadPicture(files[i]);
        if (!pictures.insert(Veltra::EncodeBase64(bytes.data(), bytes.size())).second)
            throw UsageError("picture given twice: " + files[i]);
        note("picture " + std::to_string(i + 1) + " of " + std::to_string(files.size()) + ": " +
             files[i] + ", " + std::to_string(bytes.size()) + " bytes");
    }
    return pictures;
}

}  // namespace tool

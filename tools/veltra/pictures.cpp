#include "pictures.h"

#include "bytes_openssl.h"
#include "files.h"
#include "output.h"

#include <fstream>

namespace tool {

namespace {

static_assert(kMostPictureBytes <= kMostEncodedBytes);

constexpr std::string_view kJpegStart = "\xFF\xD8\xFF";

// Reads on from where it stands, in pieces: a pipe has no size to ask for, and may never end.
std::string readPicture(const std::string& file) {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    std::ifstream stream(pathOf(file), std::ios::binary);
    std::string bytes;
    while (stream && bytes.size() <= kMostPictureBytes) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kPiece);
        stream.read(bytes.data() + before, kPiece);
        bytes.resize(before + static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.eof() && bytes.size() <= kMostPictureBytes) throw UsageError("cannot read " + file);
    return bytes;
}

std::string loadPicture(const std::string& file) {
    std::string bytes = readPicture(file);
    if (bytes.empty()) throw UsageError("an empty picture: " + file);
    if (bytes.size() > kMostPictureBytes)
        throw UsageError(file + ": a picture may have " + std::to_string(kMostPictureBytes >> 20) +
                         " MiB at most");
    if (bytes.compare(0, kJpegStart.size(), kJpegStart) != 0)
        complain("warning: " + file + " is not a JPEG file; the gateway is told that it is one");
    return bytes;
}

}  // namespace

std::unordered_set<std::string> loadPictures(const std::vector<std::string>& files) {
    if (files.size() > kMostPictures)
        throw UsageError(std::to_string(kMostPictures) + " pictures at most");
    std::unordered_set<std::string> pictures;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string bytes = loadPicture(files[i]);
        if (!pictures.insert(encodeBase64(bytes)).second)
            throw UsageError("a picture given twice: " + files[i]);
        note("picture " + std::to_string(i + 1) + " of " + std::to_string(files.size()) + ": " +
             files[i] + ", " + std::to_string(bytes.size()) + " bytes");
    }
    return pictures;
}

}  // namespace tool

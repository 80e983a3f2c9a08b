#ifndef VELTRA_FUZZ_SUPPORT_FUZZ_SUPPORT_H
#define VELTRA_FUZZ_SUPPORT_FUZZ_SUPPORT_H

#include <qlog/qlog.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// What the fuzzers share. Inputs are texts, so that seeds and finds can be read and edited: first
/// lines with parameters, then the text proper, which may hold any bytes.

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the run with a find when what must hold does not.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

inline std::string_view Input(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Takes the text up to `end` off the front of `rest`, and `end` with it; all when it has none.
inline std::string_view TakeUntil(std::string_view& rest, std::string_view end) {
    const std::size_t found = std::min(rest.find(end), rest.size());
    const std::string_view taken = rest.substr(0, found);
    rest.remove_prefix(std::min(found + end.size(), rest.size()));
    return taken;
}

inline std::string_view TakeLine(std::string_view& rest) {
    return TakeUntil(rest, "\n");
}

/// Records of every level are formatted, and go nowhere.
inline void DropRecords() {
    qlog_set_handler([](int, const char*, const char*, void*) {}, nullptr, 0);
}

}  // namespace fuzz

#endif

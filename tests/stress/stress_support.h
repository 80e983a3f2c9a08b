#ifndef VELTRA_TESTS_STRESS_SUPPORT_H
#define VELTRA_TESTS_STRESS_SUPPORT_H

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

/// What the programs that load the library for long share.
namespace stress {

/// The library shows feedback on standard output: that goes nowhere, and reports where it went.
inline FILE* DivertedOutput() {
    FILE* const report = fdopen(dup(STDOUT_FILENO), "w");
    if (report == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
    setvbuf(report, nullptr, _IOLBF, BUFSIZ);
    return report;
}

/// Base64 text of that many bytes.
inline std::string Picture(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes / 3 * 4)
        text += "QUJD";
    return text;
}

}  // namespace stress

#endif

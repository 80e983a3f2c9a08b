#ifndef VELTRA_TESTS_STRESS_SUPPORT_H
#define VELTRA_TESTS_STRESS_SUPPORT_H

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

/// What the programs that load the library for long share.
namespace stress {

/// "--name N" for each name that `given` holds, in place of its value. Anything else ends the
/// program with status 2.
inline void ReadArguments(int argc, char** argv, std::map<std::string, long>& given) {
    bool good = argc % 2 == 1;
    for (int i = 1; good && i < argc; i += 2) {
        const auto place = given.find(argv[i]);
        char* end = nullptr;
        good = place != given.end();
        if (good) place->second = std::strtol(argv[i + 1], &end, 10);
        good = good && end != argv[i + 1] && *end == '\0' && place->second >= 0;
    }
    if (good) return;
    std::fprintf(stderr, "usage: %s", argv[0]);
    for (const auto& [name, value] : given)
        std::fprintf(stderr, " [%s %ld]", name.c_str(), value);
    std::fprintf(stderr, "\n");
    std::exit(2);  // NOLINT(concurrency-mt-unsafe): there is one thread yet
}

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

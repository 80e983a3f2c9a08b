#pragma once

#include "credentials.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// Takes the library's log records while it lives: a line each on standard error, or held back
/// until somebody wants them. Secret keys are blotted out, should a gateway send one back.
class Records {
 public:
    enum class Mode { Print, Hold };

    Records(int minLevel, const Credentials& credentials, Mode mode = Mode::Print);
    ~Records();
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    /// Prints what was held back.
    void printHeld();

 private:
    static void handle(int level, const char* tag, const char* message, void* context) noexcept;
    void take(int level, std::string_view tag, std::string message);

    const int minLevel_;
    const Mode mode_;
    std::mutex mutex_;  // guards what follows
    std::vector<std::string> held_;
};

}  // namespace tool

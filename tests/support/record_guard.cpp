// Linked to every test program that uses the library: looks at each record of any level before the
// test's own handler gets it, and ends the program when one shows a secret. The linker leads calls
// of qlog_set_handler here (--wrap).

#include <qlog/qlog.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name
extern "C" void __real_qlog_set_handler(qlog_handler handler, void* context, int minLevel);

namespace {

/// What the test asked for. Kept for good: a record may be on its way when the next one is set.
struct Wish {
    qlog_handler handler;
    void* context;
    int minLevel;
    Wish* earlier;
};

/// The secret keys of all tests have "secret" in them, their tokens "bearer", as the header has.
/// A token may stand in the answer of a gateway that a record quotes whole.
bool ShowsASecret(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto has = [&](const char* word) { return text.find(word) != std::string::npos; };
    const bool quotesAnswer = has("::tokenmessage::gettoekn]") && has(",rsp is:");
    return has("secret") || has("authorization") || has("bearer ") ||
           (has("bearer") && !quotesAnswer);
}

void Look(int level, const char* tag, const char* message, void* context) {
    if (ShowsASecret(message)) {
        static_cast<void>(
            std::fprintf(stderr, "a record shows a secret: %d %s %s\n", level, tag, message));
        std::abort();
    }
    const Wish& wish = *static_cast<const Wish*>(context);
    if (level < wish.minLevel) return;
    if (wish.handler != nullptr) {
        wish.handler(level, tag, message, wish.context);
    } else {
        static_cast<void>(std::fprintf(stderr, "%d %s: %s\n", level, tag, message));
    }
}

Wish* Keep(qlog_handler handler, void* context, int minLevel) {
    static std::mutex mutex;
    static Wish* latest = nullptr;
    const std::lock_guard<std::mutex> lock(mutex);
    latest = new Wish{handler, context, minLevel, latest};
    return latest;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name
extern "C" void __wrap_qlog_set_handler(qlog_handler handler, void* context, int minLevel) {
    __real_qlog_set_handler(&Look, Keep(handler, context, minLevel), 0);
}

namespace {

[[maybe_unused]] const bool begun = (__wrap_qlog_set_handler(nullptr, nullptr, 4), true);

}  // namespace

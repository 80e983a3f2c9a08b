#include <Oak/Base/Process.h>
#include <Oak/Base/StandardStreams.h>
#include <qlog/qlog.h>
#include <qlog/qlog_write.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

namespace {

char LevelLetter(int level) {
    constexpr std::string_view letters = "DIWE";  // detail, information, warning, error: from 2 on
    return letters[static_cast<std::size_t>(std::clamp(level, 2, 5) - 2)];
}

bool IsBetween(char byte, unsigned first, unsigned last) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= first && value <= last;
}

bool IsControl(char byte) {
    return IsBetween(byte, 0x00, 0x1F) || byte == '\x7F';
}

// U+0080 to U+009F, which terminals obey as they do the controls below U+0020.
bool IsUpperControl(std::string_view text) {
    return text.size() >= 2 && text[0] == '\xC2' && IsBetween(text[1], 0x80, 0x9F);
}

void AppendEscaped(std::string& line, char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    switch (byte) {
        case '\n':
            line += "\\n";
            break;
        case '\r':
            line += "\\r";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            line += "\\x";
            line += digits[static_cast<unsigned char>(byte) >> 4];
            line += digits[static_cast<unsigned char>(byte) & 0xF];
    }
}

void AppendPrintable(std::string& line, std::string_view text) {
    while (!text.empty()) {
        if (IsUpperControl(text)) {
            AppendEscaped(line, text[0]);
            AppendEscaped(line, text[1]);
            text.remove_prefix(2);
            continue;
        }
        if (IsControl(text[0]))
            AppendEscaped(line, text[0]);
        else
            line += text[0];
        text.remove_prefix(1);
    }
}

void WriteLine(int level, const char* tag, const char* message, void* /*context*/) {
    const std::string_view text = message;
    std::string line;
    line.reserve(text.size() + 32);
    line += LevelLetter(level);
    line += ' ';
    AppendPrintable(line, tag);
    line += ": ";
    AppendPrintable(line, text);
    line += '\n';
    Oak::Base::WriteStandardError(line);
}

struct Handler {
    qlog_handler function;
    void* context;
    int minLevel;
};

/// A call of a handler that is under way, on the stack of the thread that makes it.
struct Call {
    std::uint64_t generation;
    Call* next;
};

/// A thread that waits for calls to end, on its own stack.
struct Waiter {
    std::condition_variable callEnded;
    Waiter* next;
};

template <typename Node>
void Unlink(Node*& head, const Node* node) {
    Node** link = &head;
    while (*link != node)
        link = &(*link)->next;
    *link = node->next;
}

constexpr int defaultMinLevel = 4;

/// That of the handler, to be read without a mutex.
constinit std::atomic<int> minLevel{defaultMinLevel};

/// What handler is set, and who is inside one. The mutex is never held while a handler runs, and
/// nobody who waits for a handler holds it: a record is never kept up by a change of the handler.
class Registry {
 public:
    /// False when the record is below the level; otherwise `EndCall` must follow.
    bool BeginCall(int level, Handler& handler, Call& call) {
        const std::lock_guard lock(mutex_);
        if (level < handler_.minLevel) return false;  // the handler changed since it was formatted
        handler = handler_;
        call = {generation_, calls_};
        calls_ = &call;
        return true;
    }

    // The condition is signalled under the mutex: a waiter that saw the call gone could otherwise
    // be gone itself.
    void EndCall(const Call& call) {
        const std::lock_guard lock(mutex_);
        Unlink(calls_, &call);
        for (Waiter* waiter = waiters_; waiter != nullptr; waiter = waiter->next)
            waiter->callEnded.notify_one();
    }

    /// With `await`, returns when no call of an earlier handler is left. Later calls don't count,
    /// however many there are.
    void Set(const Handler& handler, bool await) {
        std::unique_lock lock(mutex_);
        handler_ = handler;
        minLevel.store(handler.minLevel, std::memory_order_relaxed);
        const std::uint64_t generation = ++generation_;
        if (!await || !IsCalledBefore(generation)) return;

        Waiter self{{}, waiters_};
        waiters_ = &self;
        self.callEnded.wait(lock, [&] { return !IsCalledBefore(generation); });
        // cppcheck-suppress danglingLifetime; that is what takes it out
        Unlink(waiters_, &self);
    }

 private:
    bool IsCalledBefore(std::uint64_t generation) const {
        const Call* call = calls_;
        while (call != nullptr && call->generation >= generation)
            call = call->next;
        return call != nullptr;
    }

    std::mutex mutex_;
    Handler handler_{WriteLine, nullptr, defaultMinLevel};
    std::uint64_t generation_ = 0;
    Call* calls_ = nullptr;
    Waiter* waiters_ = nullptr;
};

// Records are written from constructors and destructors of static objects and by threads that
// outlive them: the registry is there when the first one comes and is never destroyed. (Not every
// system has a mutex that needs neither construction nor destruction.)
union NeverDestroyed {
    NeverDestroyed() : registry() {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): which would be deleted

    Registry registry;
};

Registry& TheRegistry() {
    static NeverDestroyed storage;
    return storage.registry;  // NOLINT(cppcoreguidelines-pro-type-union-access): its only member
}

constinit thread_local bool insideHandler = false;

void CallHandler(const Handler& handler, int level, const char* tag, const char* message) noexcept {
    insideHandler = true;
    try {
        handler.function(level, tag, message, handler.context);
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to report it
    }
    insideHandler = false;
}

void Deliver(int level, const char* tag, const char* message) {
    Handler handler{};
    Call call{};
    Registry& registry = TheRegistry();
    if (!registry.BeginCall(level, handler, call)) return;
    CallHandler(handler, level, tag, message);
    registry.EndCall(call);
}

/// The text of one record: on the stack when it is short, as nearly all are.
class Message {
 public:
    Message(const char* format, std::va_list arguments) noexcept QLOG_PRINTF_CHECK(2, 0);

    /// Null when memory was short. A text that printf can't count, or can't convert to its end, is
    /// cut to what it had written by then.
    const char* Text() const { return text_; }

 private:
    void FormatLong(int length, const char* format, std::va_list arguments) noexcept
        QLOG_PRINTF_CHECK(3, 0);

    std::array<char, 1024> short_{};
    std::unique_ptr<char[]> long_;
    const char* text_ = short_.data();
};

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the analyser doesn't see va_start.

Message::Message(const char* format, std::va_list arguments) noexcept {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(short_.data(), short_.size(), format, arguments);
    if (length >= static_cast<int>(short_.size())) FormatLong(length, format, again);
    va_end(again);
}

void Message::FormatLong(int length, const char* format, std::va_list arguments) noexcept {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    long_.reset(new (std::nothrow) char[size]);
    text_ = long_.get();
    if (text_ != nullptr)
        static_cast<void>(std::vsnprintf(long_.get(), size, format, arguments));  // counted before
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)

}  // namespace

void qlog_set_handler(qlog_handler handler, void* context, int min_level) {
    if (Oak::Base::OtherThreadsGone()) return;
    TheRegistry().Set({handler != nullptr ? handler : WriteLine, context, min_level},
                      !insideHandler);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the interface is printf's.
void qlog_write(int level, const char* tag, const char* format, ...) noexcept {
    if (level < minLevel.load(std::memory_order_relaxed) || insideHandler ||
        Oak::Base::OtherThreadsGone())
        return;

    const int errnoBefore = errno;
    std::va_list arguments;
    va_start(arguments, format);
    const Message message(format, arguments);
    va_end(arguments);
    if (message.Text() != nullptr) Deliver(level, tag, message.Text());
    errno = errnoBefore;
}

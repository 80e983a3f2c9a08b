#include "output.h"
#include "process.h"
#include "system_windows.h"
#include "text_windows.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <streambuf>
#include <utility>

namespace tool {

namespace {

constexpr int kInput = 0;
constexpr int kOutput = 1;
constexpr int kError = 2;

bool isConsole(DWORD stream) {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stream), &mode) != FALSE;
}

/// What is typed at a console. The C runtime would hand it on in the console's code page.
class ConsoleInput : public std::streambuf {
    int_type underflow() override {
        constexpr wchar_t kEndMark = L'\x1A';  // Ctrl-Z
        std::array<wchar_t, 16384> line{};     // longer than any that can be typed
        DWORD size = 0;
        const bool isRead = ReadConsoleW(GetStdHandle(STD_INPUT_HANDLE), line.data(),
                                         static_cast<DWORD>(line.size()), &size, nullptr) != FALSE;
        if (!isRead || size == 0 || line.front() == kEndMark) return traits_type::eof();
        text_ = utf8Text({line.data(), size});
        setg(text_.data(), text_.data(), text_.data() + text_.size());
        return traits_type::to_int_type(text_.front());
    }

    std::string text_;
};

/// What is shown on a console. Wide text needs no code page, which all programs of a console share.
class ConsoleOutput : public std::streambuf {
 public:
    explicit ConsoleOutput(DWORD stream) : stream_(stream) {}

 private:
    int_type overflow(int_type byte) override {
        if (!traits_type::eq_int_type(byte, traits_type::eof()))
            text_ += traits_type::to_char_type(byte);
        return traits_type::not_eof(byte);
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override {
        text_.append(text, static_cast<std::size_t>(size));
        return size;
    }

    int sync() override {
        constexpr std::size_t kPiece = 8192;  // older systems take no more than 64 KiB at once
        const std::wstring wide = wideText(std::exchange(text_, {}));
        for (std::size_t at = 0; at < wide.size(); at += kPiece) {
            const auto size = static_cast<DWORD>(std::min(kPiece, wide.size() - at));
            DWORD written = 0;
            if (WriteConsoleW(GetStdHandle(stream_), wide.data() + at, size, &written, nullptr) ==
                FALSE)
                return -1;
        }
        return 0;
    }

    const DWORD stream_;
    std::string text_;
};

/// For good: the standard library hands its streams on after all else.
void showOnConsole(std::ostream& stream, DWORD handle) {
    if (isConsole(handle)) stream.rdbuf(new ConsoleOutput(handle));
}

/// For the C runtime and for the library, which writes past it.
bool pointOutputTo(int descriptor) {
    if (_dup2(descriptor, kOutput) != 0) return false;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the C runtime's interface
    return SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(_get_osfhandle(kOutput))) !=
           FALSE;
}

int openTarget(OutputElsewhere::Target target) {
    if (target == OutputElsewhere::Target::StandardError) return _dup(kError);
    int descriptor = -1;
    static_cast<void>(
        _sopen_s(&descriptor, "NUL", _O_WRONLY | _O_BINARY | _O_NOINHERIT, _SH_DENYNO, _S_IWRITE));
    return descriptor;
}

std::atomic<bool> interruptionRequested{false};

/// On a thread of its own. What it doesn't take ends the program.
std::function<void()> interruptionAct;  // set while no handler is there

/// Called on a thread of the system's own.
BOOL WINAPI requestInterruption(DWORD event) {
    if (event != CTRL_C_EVENT || interruptionRequested.exchange(true)) return FALSE;
    if (interruptionAct) interruptionAct();
    return TRUE;
}

}  // namespace

CommandLine::CommandLine(int /*argc*/, char** /*argv*/) {
    struct Free {
        void operator()(LPWSTR* texts) const { LocalFree(texts); }
    };
    int count = 0;
    const std::unique_ptr<LPWSTR, Free> wide(CommandLineToArgvW(GetCommandLineW(), &count));
    for (int i = 0; wide != nullptr && i < count; ++i)
        texts_.push_back(utf8Text(wide.get()[i]));
    for (auto& text : texts_)
        values_.push_back(text.data());
    values_.push_back(nullptr);
}

// No socket can take the place of a closed stream, and a closed pipe raises no signal. Bytes are to
// come and go as they are: the C runtime would turn ends of line around, and take Ctrl-Z for the
// end of a file.
void prepareStandardStreams() {
    for (const int descriptor : {kInput, kOutput, kError})
        static_cast<void>(_setmode(descriptor, _O_BINARY));
    showOnConsole(std::cout, STD_OUTPUT_HANDLE);
    showOnConsole(std::cerr, STD_ERROR_HANDLE);
}

std::istream& standardInput() {
    if (!isConsole(STD_INPUT_HANDLE)) return std::cin;
    static ConsoleInput console;
    static std::istream input(&console);
    return input;
}

bool readerIsGone() {
    // As the system has it: the C runtime makes several errors of it.
    const auto error = _doserrno;
    return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA ||
           error == ERROR_PIPE_NOT_CONNECTED;
}

bool inputComesFromTerminal() {
    return isConsole(STD_INPUT_HANDLE);
}

bool errorGoesToTerminal() {
    return isConsole(STD_ERROR_HANDLE);
}

bool outputGoesToTerminal() {
    return isConsole(STD_OUTPUT_HANDLE);
}

OutputElsewhere::OutputElsewhere(Target target) : output_(_dup(kOutput)) {
    const int elsewhere = openTarget(target);
    const bool pointed = output_ != -1 && elsewhere != -1 && pointOutputTo(elsewhere);
    if (elsewhere != -1) _close(elsewhere);
    if (pointed) return;
    if (output_ != -1) _close(output_);
    throw Failure("standard output cannot be redirected");
}

OutputElsewhere::~OutputElsewhere() {
    static_cast<void>(pointOutputTo(output_));
    _close(output_);
}

// A program that was started with Ctrl-C ignored is never told of it.
class Interruption::Watcher {};  // nothing is needed beside the handler

Interruption::Interruption(std::function<void()> act) {
    interruptionRequested = false;
    interruptionAct = std::move(act);
    SetConsoleCtrlHandler(&requestInterruption, TRUE);
}

Interruption::~Interruption() {
    SetConsoleCtrlHandler(&requestInterruption, FALSE);
}

bool Interruption::requested() const {
    return interruptionRequested;
}

std::string environmentText(const char* name) {
    const std::wstring wideName = wideText(name);
    std::wstring value(GetEnvironmentVariableW(wideName.c_str(), nullptr, 0), L'\0');
    const DWORD size = static_cast<DWORD>(value.size());
    value.resize(GetEnvironmentVariableW(wideName.c_str(), value.data(), size));
    return utf8Text(value);
}

int becomeProgram(const std::string& name, const std::vector<char*>& /*arguments*/) {
    complain("veltra: there is no " + name +
             " for Windows; run it on Linux, and give its URL to the other subcommands");
    return kNotFound;
}

// Who may read a file here is a matter of lists, groups and inherited rights. A folder of the
// user's own is closed to others unless somebody opens it.
bool isReadableByOthers(const std::string& /*file*/) {
    return false;
}

}  // namespace tool

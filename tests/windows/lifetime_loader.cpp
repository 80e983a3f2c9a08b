// A host built apart from the library, which loads it and a plugin that uses it, and unloads both:
//
//     lifetime_loader stop|go ROUNDS
//
// With "stop" the monitor is ended before each unload, and the library is gone after it. With "go"
// it isn't: the library stays loaded until somebody ends the monitor, and then goes by itself.

#include "windows/gateways.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

namespace {

[[noreturn]] void Fail(long round, const char* what) {
    std::fprintf(stderr, "round %ld: %s\n", round, what);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 98);
    std::abort();
}

class Module {
 public:
    explicit Module(const char* file) : handle_(LoadLibraryA(file)) {}
    ~Module() { FreeLibrary(handle_); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }

    template <typename Function>
    Function Find(const char* name) const {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
    }

 private:
    HMODULE handle_;
};

bool IsLoaded() {
    return GetModuleHandleA("Veltra.dll") != nullptr;
}

/// The thread that held the module may need a moment more to leave it.
bool IsGone() {
    for (int i = 0; i < 1000 && IsLoaded(); ++i)
        Sleep(5);
    return !IsLoaded();
}

void Run(long round, const std::string& url) {
    const Module plugin("lifetime_plugin.dll");
    const auto run = plugin.Find<bool (*)(const char*)>("lifetime_plugin_run");
    if (!plugin || run == nullptr || !run(url.c_str())) Fail(round, "the plugin failed");
}

void Stop(long round) {
    const Module plugin("lifetime_plugin.dll");
    const auto stop = plugin.Find<bool (*)()>("lifetime_plugin_stop");
    if (!plugin || stop == nullptr || !stop()) Fail(round, "the plugin did not stop");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 97;
    const std::string url = gateways::Read("plain");
    const bool stops = std::string_view(argv[1]) == "stop";
    for (long round = std::strtol(argv[2], nullptr, 10); round > 0; --round) {
        {
            // By its own name, before anything needs it.
            const Module library("Veltra.dll");
            using Handler = void (*)(int, const char*, const char*, void*);
            const auto setHandler = library.Find<void (*)(Handler, void*, int)>("qlog_set_handler");
            if (setHandler == nullptr) Fail(round, "no library");
            setHandler(nullptr, nullptr, 4);
            Run(round, url);
            if (stops) Stop(round);
        }
        if (!stops) {
            if (!IsLoaded()) Fail(round, "unloaded under its monitor");
            Stop(round);
        }
        if (!IsGone()) Fail(round, "still loaded");
    }
    return 0;
}

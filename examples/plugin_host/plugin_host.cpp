// A host that loads a plugin which uses the library, and unloads both again.
//
//     VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... plugin_host GATEWAY-URL

#include "assistant.h"

#include <cstdlib>
#include <iostream>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

// The build sets PLUGIN_FILE. A real host looks in a folder of its own, never in one that others
// can write to.
class Module {
 public:
#if defined(_WIN32)
    Module() : handle_(LoadLibraryA(PLUGIN_FILE)) {}
    ~Module() {
        if (handle_ != nullptr) FreeLibrary(handle_);
    }
    void* Find(const char* name) const {
        return reinterpret_cast<void*>(GetProcAddress(handle_, name));
    }
    static bool LibraryStaysLoaded() {
        // The library's thread has ended its work, but may need another moment to leave.
        for (int i = 0; i < 1000 && GetModuleHandleA("veltra.dll") != nullptr; ++i)
            Sleep(5);
        return GetModuleHandleA("veltra.dll") != nullptr;
    }
#else
    Module() : handle_(dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL)) {}
    ~Module() {
        if (handle_ != nullptr) dlclose(handle_);
    }
    void* Find(const char* name) const {
        return dlsym(handle_, name);
    }
    static bool LibraryStaysLoaded() {
        void* const library = dlopen("libveltra.so.1", RTLD_NOW | RTLD_NOLOAD);
        if (library != nullptr) dlclose(library);  // the look itself counted
        return library != nullptr;
    }
#endif
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    explicit operator bool() const {
        return handle_ != nullptr;
    }

 private:
#if defined(_WIN32)
    HMODULE handle_;
#else
    void* handle_;
#endif
};

extern "C" void Log(const char* message) {
    std::cerr << message << '\n';
}

bool AskOnce(const char* gateway, const char* appKey, const char* secretKey) {
    const Module plugin;
    if (!plugin) return false;
    const auto start = reinterpret_cast<decltype(&assistant_start)>(plugin.Find("assistant_start"));
    const auto ask = reinterpret_cast<decltype(&assistant_ask)>(plugin.Find("assistant_ask"));
    const auto stop = reinterpret_cast<decltype(&assistant_stop)>(plugin.Find("assistant_stop"));
    if (start == nullptr || ask == nullptr || stop == nullptr) return false;

    char answer[256] = "";
    const bool answered =
        start(gateway, appKey, secretKey, &Log) == 1 && ask("Ada", answer, sizeof answer) == 0;
    // Join the host's threads that call the plugin here: no call may be under way below.
    stop();
    if (answered) std::cout << answer << '\n';
    // The plugin is unloaded as it goes out of scope, and with it the library: all memory,
    // descriptors and threads are released.
    return answered;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const appKey = std::getenv("VELTRA_APP_KEY");
    const char* const secretKey = std::getenv("VELTRA_SECRET_KEY");
    if (argc != 2 || appKey == nullptr || secretKey == nullptr) {
        std::cerr << "usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... plugin_host GATEWAY-URL\n";
        return 2;
    }
    // Twice, to show that it starts afresh: the second round logs in again.
    for (int round = 0; round < 2; ++round) {
        if (!AskOnce(argv[1], appKey, secretKey)) return 1;
        if (Module::LibraryStaysLoaded()) return 1;
    }
    std::cout << "loaded and unloaded twice\n";
    return 0;
}

// A host process that doesn't link the library: it loads a plugin that does, lets it bring the
// library into a state, unloads it again and sees that nothing stays mapped:
//
//     lifetime_loader STATE URL CA-FILE ROUNDS PLUGIN

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::_Exit(98);
}

/// Says where the host is on standard output, and goes on when it reads a line.
void Meet(const char* where) {
    std::printf("%s\n", where);
    std::fflush(stdout);
    std::array<char, 16> line{};
    if (std::fgets(line.data(), line.size(), stdin) == nullptr) Fail("left alone");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) return 97;
    for (long round = std::strtol(argv[4], nullptr, 10); round > 0; --round) {
        void* const module = dlopen(argv[5], RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) Fail(dlerror());
        using Run = bool (*)(const char*, const char*, const char*, void (*)(const char*));
        const auto run = reinterpret_cast<Run>(dlsym(module, "lifetime_plugin_run"));
        if (run == nullptr || !run(argv[1], argv[2], argv[3], &Meet)) Fail("the plugin failed");
        alarm(20);  // an unload that hangs ends here
        dlclose(module);
        if (dlopen("libveltra.so.1", RTLD_NOW | RTLD_NOLOAD) != nullptr) Fail("still loaded");
    }
    return 0;
}

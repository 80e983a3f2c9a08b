// A module that uses the library, for a host that loads and unloads it.

#include "e2e/calls.h"

#include <Veltra/Veltra.h>

extern "C" __declspec(dllexport) bool lifetime_plugin_run(const char* url) {
    Veltra::Veltra_Enable();
    return Veltra::Veltra_SetDomain(url) && e2e::LogIn() && e2e::Ask()[0] == 'H';
}

extern "C" __declspec(dllexport) bool lifetime_plugin_stop() {
    return Veltra::Veltra_Unit();
}

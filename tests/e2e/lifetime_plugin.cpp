// A module that uses the library, for a host that loads and unloads it.

#include "e2e/e2e_support.h"

extern "C" __attribute__((visibility("default"))) bool lifetime_plugin_run(
    const char* url, const char* ca, void (*meet)(const char*)) {
    Oak::Net::HttpClientOptions options;
    options.caFile = ca;
    options.totalTimeoutMs = 1000;
    Oak::Net::SetHttpClientOptions(options);
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(url)) return false;
    meet("domain");
    if (!e2e::LogIn()) return false;
    meet("ready");  // the monitor runs on while the host unloads the plugin
    return true;
}

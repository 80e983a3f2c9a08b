// A module that uses the library, for a host that loads and unloads it.

#include "e2e/lifetime_states.h"

extern "C" __attribute__((visibility("default"))) bool lifetime_plugin_run(const char* state,
                                                                           const char* url,
                                                                           const char* ca,
                                                                           lifetime::Meet meet) {
    return lifetime::Reach(state, url, ca, meet);
}

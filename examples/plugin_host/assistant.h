// The interface between host and plugin, in plain C: no exception and no object that the other side
// would have to free crosses it, and the host holds nothing of the library when the plugin is
// unloaded.
#ifndef ASSISTANT_H
#define ASSISTANT_H

#include <stddef.h>

#if defined(_WIN32)
#define ASSISTANT_API __declspec(dllexport)
#else
#define ASSISTANT_API __attribute__((visibility("default")))
#endif

extern "C" {

typedef void (*assistant_log)(const char* message);  // called from any thread, until stop returns

// 1 when logged in. Whatever it returns, assistant_stop follows.
ASSISTANT_API int assistant_start(const char* gateway, const char* appKey, const char* secretKey,
                                  assistant_log log);

// Copies the answer, cut to `size`, and returns 0; otherwise the error code.
ASSISTANT_API int assistant_ask(const char* name, char* answer, size_t size);

// After it the plugin may be unloaded. No other call may be under way.
ASSISTANT_API void assistant_stop();
}

#endif

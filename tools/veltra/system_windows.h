#pragma once

// The system's headers, in the one order that they can bear, without macros that hide our names.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

// clang-format off
#include <windows.h>
#include <shellapi.h>
#include <winhttp.h>
// clang-format on

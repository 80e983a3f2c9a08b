#pragma once

// RapidJSON's headers. Before its first allocation the library's stack computes an end from a null
// pointer: harmless, but it stops a run under the sanitizer.
// The standard headers that it includes come first: they are none of the attribute's business.
#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <utility>

#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#if defined(__clang__)
#pragma clang attribute pop
#endif

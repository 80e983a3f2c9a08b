#ifndef OAK_BASE_WIPE_H
#define OAK_BASE_WIPE_H

#include <cstddef>
#include <cstring>
#include <string>

namespace Oak::Base {

/// Overwrites bytes that contain a secret.
inline void Wipe(char* bytes, std::size_t count) noexcept {
    // Called where a compiler can't look: it would drop writes that nobody reads.
    static void* (*const volatile fill)(void*, int, std::size_t) = &std::memset;
    fill(bytes, 0, count);
}

/// Overwrites a text together with its spare capacity, and empties it. Reserve the capacity before
/// a secret goes in: the buffers that a growing string leaves behind are out of reach.
inline void Wipe(std::string& text) noexcept {
    text.resize(text.capacity());
    Wipe(text.data(), text.size());
    text.clear();
}

}  // namespace Oak::Base

#endif

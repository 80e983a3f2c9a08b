#ifndef OAK_BASE_WIPE_H
#define OAK_BASE_WIPE_H

#include <cstddef>
#include <string>

namespace Oak::Base {

/// Overwrites a text and the room behind it, and empties it. Reserve the room before a secret goes
/// in: what a growing string leaves behind is out of reach.
inline void Wipe(std::string& text) noexcept {
    text.resize(text.capacity());
    volatile char* const bytes =
        text.data();  // volatile: a compiler drops writes that nobody reads
    for (std::size_t i = 0; i < text.size(); ++i)
        bytes[i] = '\0';
    text.clear();
}

}  // namespace Oak::Base

#endif

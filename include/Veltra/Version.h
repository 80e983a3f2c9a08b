#ifndef VELTRA_VERSION_H
#define VELTRA_VERSION_H

#include <Veltra/Export.h>

/// @file
/// Which version a host was built against, and which one it runs with. docs/abi.md says which
/// versions go together.

/// @def VELTRA_VERSION_MAJOR
/// The major version of the headers: when it changes, hosts must be rebuilt.
#define VELTRA_VERSION_MAJOR 1
/// @def VELTRA_VERSION_MINOR
/// The minor version: it changes when something is added.
#define VELTRA_VERSION_MINOR 1
/// @def VELTRA_VERSION_PATCH
/// The patch version: it changes when a fault is fixed.
#define VELTRA_VERSION_PATCH 0

/// @def VELTRA_VERSION_QUOTED
/// For `VELTRA_VERSION` only.
#define VELTRA_VERSION_QUOTED(x, y, z) #x "." #y "." #z
/// @def VELTRA_VERSION_TEXT
/// For `VELTRA_VERSION` only: replaces the names by their numbers.
#define VELTRA_VERSION_TEXT(x, y, z) VELTRA_VERSION_QUOTED(x, y, z)
/// @def VELTRA_VERSION
/// The headers' version as text: the three numbers, separated by full stops.
#define VELTRA_VERSION \
    VELTRA_VERSION_TEXT(VELTRA_VERSION_MAJOR, VELTRA_VERSION_MINOR, VELTRA_VERSION_PATCH)

namespace Veltra {

/// Returns the version of the loaded library, which may be later than that of the headers the host
/// was built with (`VELTRA_VERSION`). Any thread may call it at any time, even before the layer is
/// enabled and in a forked child; it neither blocks nor throws.
/// @return a text like `VELTRA_VERSION`, valid while the library is loaded
VELTRA_API const char* Veltra_GetVersion();

}  // namespace Veltra

#endif

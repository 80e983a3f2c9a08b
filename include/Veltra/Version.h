#ifndef VELTRA_VERSION_H
#define VELTRA_VERSION_H

#include <Veltra/Export.h>

/// @file
/// Which version a host was built against, and which one it runs with. docs/abi.md says what goes
/// together.

/// @def VELTRA_VERSION_MAJOR
/// The first figure of the headers' version: hosts are built again when it moves.
#define VELTRA_VERSION_MAJOR 1
/// @def VELTRA_VERSION_MINOR
/// The second figure: something was added.
#define VELTRA_VERSION_MINOR 0
/// @def VELTRA_VERSION_PATCH
/// The third figure: something was mended.
#define VELTRA_VERSION_PATCH 0

/// @def VELTRA_VERSION_QUOTED
/// For `VELTRA_VERSION` alone.
#define VELTRA_VERSION_QUOTED(x, y, z) #x "." #y "." #z
/// @def VELTRA_VERSION_TEXT
/// For `VELTRA_VERSION` alone: takes the figures for their names.
#define VELTRA_VERSION_TEXT(x, y, z) VELTRA_VERSION_QUOTED(x, y, z)
/// @def VELTRA_VERSION
/// The headers' version as a text, the three figures with full stops between them.
#define VELTRA_VERSION \
    VELTRA_VERSION_TEXT(VELTRA_VERSION_MAJOR, VELTRA_VERSION_MINOR, VELTRA_VERSION_PATCH)

namespace Veltra {

/// Tells the version of the library that is loaded, which may be later than that of the headers the
/// host was built with (`VELTRA_VERSION`). Any thread may call it at any time, also before the layer
/// is enabled and in a forked child; it neither blocks nor throws.
/// @return a text like `VELTRA_VERSION`, valid while the library is loaded
VELTRA_API const char* Veltra_GetVersion();

}  // namespace Veltra

#endif

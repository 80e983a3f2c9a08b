#ifndef OAK_BASE_EXPORT_H
#define OAK_BASE_EXPORT_H

/// @file
/// What the library exports from its platform services.

/// @def OAK_API
/// Marks the few platform declarations that a host may use; everything else stays hidden inside the
/// library.
#if defined(_WIN32)
#if defined(VELTRA_BUILDING_LIBRARY)
#define OAK_API __declspec(dllexport)
#else
#define OAK_API __declspec(dllimport)
#endif
#else
#define OAK_API __attribute__((visibility("default")))
#endif

#endif

#ifndef VELTRA_EXPORT_H
#define VELTRA_EXPORT_H

/// @file
/// What the library exports.

/// @def VELTRA_API
/// Marks what the library exports; everything else stays hidden inside it.
#if defined(_WIN32)
#if defined(VELTRA_BUILDING_LIBRARY)
#define VELTRA_API __declspec(dllexport)
#else
#define VELTRA_API __declspec(dllimport)
#endif
#else
#define VELTRA_API __attribute__((visibility("default")))
#endif

#endif

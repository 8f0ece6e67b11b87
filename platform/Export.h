/// @file
/// The export marks of the two libraries: the one place outside the platform sources where the system matters.
#pragma once

/// @def KQLIB_EXPORT
/// What a library is built with: the symbol can be seen from outside. Nothing with KQLIB_STATIC, which is defined for
/// static libraries, in their own build and in their users'.
/// @def KQLIB_IMPORT
/// What the users of a library are built with: the symbol is in another library. Nothing with KQLIB_STATIC.
#if defined(KQLIB_STATIC)
#define KQLIB_EXPORT
#define KQLIB_IMPORT
#elif defined(_WIN32)
#define KQLIB_EXPORT __declspec(dllexport)
#define KQLIB_IMPORT __declspec(dllimport)
#else
#define KQLIB_EXPORT __attribute__((visibility("default")))
#define KQLIB_IMPORT __attribute__((visibility("default")))
#endif

/// Marks a class or function of the companion library `kqcommon` (the platform layer lives in it).
#if defined(KQCOMMON_BUILD)
#define KQCOMMON_API KQLIB_EXPORT
#else
#define KQCOMMON_API KQLIB_IMPORT
#endif

/// Marks a class or function of `kqnet`.
#if defined(KQNET_BUILD)
#define KQNET_API KQLIB_EXPORT
#else
#define KQNET_API KQLIB_IMPORT
#endif

#pragma once

/// \file
/// Marks what a shared library exports. The build defines `<NAME>_BUILD` while it compiles the shared library
/// itself and `<NAME>_STATIC` for code that is linked without one.

#if defined(_WIN32)
#define KY_EXPORT __declspec(dllexport)
#define KY_IMPORT __declspec(dllimport)
#elif defined(__GNUC__)
#define KY_EXPORT __attribute__((visibility("default")))
#define KY_IMPORT __attribute__((visibility("default")))
#else
#define KY_EXPORT
#define KY_IMPORT
#endif

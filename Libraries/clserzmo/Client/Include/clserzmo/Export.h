#ifndef CLSERZMO_EXPORT_H
#define CLSERZMO_EXPORT_H

/* How the functions of clser.h leave and enter a program. The library's own build defines CLSERZMO_BUILD; a
   program that links it statically defines CLSERZMO_STATIC; other programs define nothing. */

#if defined(_WIN32)
#define CLSER_CALL __cdecl
#else
#define CLSER_CALL
#endif

#if defined(CLSERZMO_STATIC)
#define CLSER_API
#elif defined(_WIN32) && defined(CLSERZMO_BUILD)
#define CLSER_API __declspec(dllexport)
#elif defined(_WIN32)
#define CLSER_API __declspec(dllimport)
#elif defined(__GNUC__)
#define CLSER_API __attribute__((visibility("default")))
#else
#define CLSER_API
#endif

#endif

// What a shared library shows: the declarations that are marked. All else stays hidden. All
// public headers bring it in, so that the language they need is told here too.

#ifndef UTILS_PATH_FILTER_BASE_EXPORT_H_
#define UTILS_PATH_FILTER_BASE_EXPORT_H_

#if __cplusplus < 202002L
#error "path_filter needs C++20: compile with -std=c++20 or later"
#endif

// What a shared file shows of itself even where it takes the library in.
#ifdef _WIN32
#define PATH_FILTER_ENTRY_POINT __declspec(dllexport)
#else
#define PATH_FILTER_ENTRY_POINT __attribute__((visibility("default")))
#endif

#ifdef PATH_FILTER_STATIC
#define PATH_FILTER_EXPORT
#elif defined(_WIN32) && !defined(PATH_FILTER_BUILDS_LIBRARY)
#define PATH_FILTER_EXPORT  // who uses a library finds what it exports without a mark
#else
#define PATH_FILTER_EXPORT PATH_FILTER_ENTRY_POINT
#endif

#endif  // UTILS_PATH_FILTER_BASE_EXPORT_H_

// What a shared library shows: the declarations that are marked. All else stays hidden.

#ifndef UTILS_PATH_FILTER_BASE_EXPORT_H_
#define UTILS_PATH_FILTER_BASE_EXPORT_H_

#ifdef PATH_FILTER_STATIC
#define PATH_FILTER_EXPORT
#else
#define PATH_FILTER_EXPORT __attribute__((visibility("default")))
#endif

#endif  // UTILS_PATH_FILTER_BASE_EXPORT_H_

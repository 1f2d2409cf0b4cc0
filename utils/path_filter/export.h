// What a shared library shows. The libraries are built with hidden visibility; a public header
// writes its namespace as
//
//   namespace PATH_FILTER_EXPORT path_filter {
//
// and everything it declares there is shown, while what the sources and the private headers
// declare is not. Code that is compiled with hidden visibility itself defines a registry with
// no more than including the header. (Before the name, as clang-format loses the name else.)

#ifndef UTILS_PATH_FILTER_EXPORT_H_
#define UTILS_PATH_FILTER_EXPORT_H_

#define PATH_FILTER_EXPORT [[gnu::visibility("default")]]

#endif  // UTILS_PATH_FILTER_EXPORT_H_

// What file_system_posix.cpp, platform_linux.cpp and platform_posix.cpp share. What Linux has
// beyond POSIX and files are read with is there twice: as Linux does it best, and in what POSIX
// gives on any system (PATH_FILTER_POSIX_ONLY, an option of the build). The answers are the same.
//
// Listing::read, of file_system.h, is defined in both too.

#ifndef UTILS_PATH_FILTER_BASE_POSIX_H_
#define UTILS_PATH_FILTER_BASE_POSIX_H_

#include <dirent.h>

#include <system_error>

#include "utils/path_filter/base/file_system.h"

namespace path_filter::internal {

/// The file descriptor.
inline int number(const FileHandle& file) { return static_cast<int>(file.value()); }

/// The flags of open(2) for a directory that is only passed through. Where the system
/// has such a way to open one, the right to search it is enough; elsewhere (the GNU C
/// library without Linux's own O_PATH) it must be readable too.
extern const int PASSING;

/// Opens `path` from the directory `directory` with the flags of open(2); fails with
/// too_many_symbolic_link_levels on a
/// symbolic link anywhere in `path`. function_not_supported and operation_not_permitted say that
/// the system has no one call for this: the caller then goes component by component.
std::error_code open_without_links(int directory, const char* path, int flags, FileHandle& opened);

/// Adds an entry of `directory` as the C library gives it, unless it is "." or "..".
void add_entry(Listing& listing, const FileHandle& directory, const dirent& entry);

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_POSIX_H_

#ifndef UTILS_PATH_FILTER_INTERNAL_LISTED_DIRECTORY_H_
#define UTILS_PATH_FILTER_INTERNAL_LISTED_DIRECTORY_H_

#include <string_view>

#include "utils/path_filter/internal/file_system.h"

namespace path_filter {

/// A directory that a walk has open. Its `.gitignore` is read through the open
/// directory, and while a walk asks, no other is read through a link.
struct ListedDirectory {
  const internal::FileDescriptor& directory;
  std::string_view path;  // relative to the root, as it is on disk
  const internal::Listing& listing;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_INTERNAL_LISTED_DIRECTORY_H_

#ifndef PROGRAM_FILE_SIZE_H_
#define PROGRAM_FILE_SIZE_H_

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "utils/path_filter/index_scope.h"

namespace program {

/// The size in bytes of the file at `path` below the scope's root; absent when there is
/// none.
inline std::optional<std::int64_t> file_size(const path_filter::IndexScope& scope,
                                             std::string_view path) {
  std::string file = scope.root.native();
  if (!file.empty() && !file.ends_with('/')) file += '/';
  file += path;
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return static_cast<std::int64_t>(status.st_size);
}

/// The same when the scope has limits, absent without looking when it has none.
inline std::optional<std::int64_t> size_for_limits(const path_filter::IndexScope& scope,
                                                   std::string_view path) {
  if (!scope.limits) return std::nullopt;
  return file_size(scope, path);
}

}  // namespace program

#endif  // PROGRAM_FILE_SIZE_H_

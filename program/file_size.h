#ifndef PROGRAM_FILE_SIZE_H_
#define PROGRAM_FILE_SIZE_H_

#include <cerrno>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/file_system.h"

namespace program {

/// The size of a file could not be had; the text says why.
class FileSizeError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The size in bytes of the file at `path` below the scope's root; absent when there is
/// none. Throws FileSizeError when that cannot be told.
inline std::optional<std::int64_t> file_size(const path_filter::IndexScope& scope,
                                             std::string_view path) {
  std::string file = scope.root.native();
  if (!file.empty() && !file.ends_with('/')) file += '/';
  file += path;
  const auto size = path_filter::internal::file_size(file);
  if (const auto* bytes = std::get_if<std::int64_t>(&size)) return *bytes;
  const auto& error = std::get<path_filter::internal::ReadError>(size);
  switch (error.code) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:  // of one component: no file has that name
      return std::nullopt;
    default:
      throw FileSizeError("cannot tell its size: " + error.message);
  }
}

/// The same when the scope has limits, absent without looking when it has none.
inline std::optional<std::int64_t> size_for_limits(const path_filter::IndexScope& scope,
                                                   std::string_view path) {
  if (!scope.limits) return std::nullopt;
  return file_size(scope, path);
}

}  // namespace program

#endif  // PROGRAM_FILE_SIZE_H_

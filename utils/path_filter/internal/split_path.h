#ifndef UTILS_PATH_FILTER_INTERNAL_SPLIT_PATH_H_
#define UTILS_PATH_FILTER_INTERNAL_SPLIT_PATH_H_

#include <cstddef>
#include <cstring>
#include <string_view>

namespace path_filter::internal {

/// A path split at its last "/"; without one it is all name.
struct SplitPath {
  explicit SplitPath(std::string_view path) : name(path) {
    if (path.empty()) return;
    // The library's rfind goes byte by byte, this does not.
    if (const void* found = ::memrchr(path.data(), '/', path.size())) {
      const auto slash = static_cast<std::size_t>(static_cast<const char*>(found) - path.data());
      directory = path.substr(0, slash);
      name = path.substr(slash + 1);
    }
  }
  std::string_view directory;
  std::string_view name;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_SPLIT_PATH_H_

// Paths as text, by POSIX rules and without touching the file system.

#ifndef UTILS_PATH_FILTER_INTERNAL_PATHS_H_
#define UTILS_PATH_FILTER_INTERNAL_PATHS_H_

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "utils/path_filter/internal/platform.h"

namespace path_filter::internal {

/// A path split at its last "/"; without one it is all name.
struct SplitPath {
  explicit SplitPath(std::string_view path) : name(path) {
    if (const char* found = find_last(path, '/')) {
      const auto slash = static_cast<std::size_t>(found - path.data());
      directory = path.substr(0, slash);
      name = path.substr(slash + 1);
    }
  }
  std::string_view directory;
  std::string_view name;
};

/// The components of `path`, one at a time from the front. "/" is the only
/// separator; exactly two leading "/" give "//" as the first component, one or three
/// and more give "/"; empty components and "." are dropped, ".." stays.
class PathComponents {
 public:
  explicit PathComponents(std::string_view path) : _rest(path) {
    const std::size_t slashes = std::min(path.find_first_not_of('/'), path.size());
    if (slashes > 0) _root = slashes == 2 ? "//" : "/";
  }

  /// The next component, or absent at the end.
  std::optional<std::string_view> next() {
    if (!_root.empty()) return std::exchange(_root, {});
    while (!_rest.empty()) {
      const std::size_t end = std::min(_rest.find('/'), _rest.size());
      const std::string_view component = _rest.substr(0, end);
      _rest.remove_prefix(std::min(end + 1, _rest.size()));
      if (!component.empty() && component != ".") return component;
    }
    return std::nullopt;
  }

 private:
  std::string_view _root;
  std::string_view _rest;
};

/// The last component of `path`, or "" when it has none besides a leading "/" or
/// "//".
inline std::string_view last_component(std::string_view path) {
  while (!path.empty()) {
    const auto [directory, name] = SplitPath(path);
    if (!name.empty() && name != ".") return name;
    path = directory;
  }
  return {};
}

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_PATHS_H_

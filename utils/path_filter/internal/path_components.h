// Splits a path's text into its components, by POSIX rules and without touching the
// file system.

#ifndef UTILS_PATH_FILTER_INTERNAL_PATH_COMPONENTS_H_
#define UTILS_PATH_FILTER_INTERNAL_PATH_COMPONENTS_H_

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "utils/path_filter/internal/split_path.h"

namespace path_filter::internal {

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

#endif  // UTILS_PATH_FILTER_INTERNAL_PATH_COMPONENTS_H_

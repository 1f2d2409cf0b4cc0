// Paths as text, by POSIX rules and without touching the file system.

#ifndef UTILS_PATH_FILTER_BASE_PATHS_H_
#define UTILS_PATH_FILTER_BASE_PATHS_H_

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "utils/path_filter/base/path_argument.h"
#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {

/// A path split at its last "/"; without one it is all name.
struct SplitPath {
  explicit SplitPath(std::string_view path) {
    // Whole views are not copied: that stalls the processor for as long as a hash takes, when
    // their halves have just been stored.
    const char* const slash = find_last(path, '/');
    const auto size = slash == nullptr ? 0 : static_cast<std::size_t>(slash - path.data());
    const std::size_t begin = slash == nullptr ? 0 : size + 1;
    directory = std::string_view(path.data(), size);
    name = std::string_view(path.data() + begin, path.size() - begin);
  }
  std::string_view directory;
  std::string_view name;
};

/// `path` with a "/" for each backslash: itself, or a view into `storage` where it has one.
inline std::string_view with_slashes(std::string_view path, std::string& storage) {
  if (path.find('\\') == std::string_view::npos) return path;
  storage.assign(path);
  std::ranges::replace(storage, '\\', '/');
  return storage;
}

/// Parts of a path with a "/" between them; empty ones are left out.
inline std::string joined(std::initializer_list<std::string_view> parts) {
  std::string path;
  for (const std::string_view part : parts) {
    if (!part.empty() && !path.empty() && path.back() != '/') path += '/';
    path += part;
  }
  return path;
}

/// Where `target` leads from the directory `base`: it may be absolute.
inline std::string resolved(std::string_view base, std::string_view target) {
  return path_text(path_of(base) / path_of(target));
}

/// `path` without "." and, where a name is before them, ".."; a "/" at its end stays.
inline std::string normalized(std::string_view path) {
  return path_text(path_of(path).lexically_normal());
}

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
  for (std::size_t end = path.size(); end > 0;) {
    const char* const slash = find_last(std::string_view(path.data(), end), '/');
    const std::size_t begin =
        slash == nullptr ? 0 : static_cast<std::size_t>(slash - path.data()) + 1;
    const std::size_t size = end - begin;
    if (size > 1 || (size == 1 && path[begin] != '.')) return {path.data() + begin, size};
    end = begin == 0 ? 0 : begin - 1;
  }
  return {};
}

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_PATHS_H_

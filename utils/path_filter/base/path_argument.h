// A path, as every question of the component takes it.

#ifndef UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_
#define UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_

#include <concepts>
#include <cstddef>
#include <filesystem>
#include <string_view>

#include "utils/path_filter/base/export.h"  // which tells what language is needed

namespace path_filter {

/// What views a text of any kind or a std::filesystem::path, without copying it: for
/// parameters only, as it must not outlive what it was made of. A path is its bytes; those
/// of a name need not be valid UTF-8.
class PathArgument {
 public:
  template <std::convertible_to<std::string_view> Text>
  constexpr PathArgument(const Text& text) : _text(text) {}  // NOLINT: implicit by intent

  PathArgument(std::nullptr_t) = delete;

  // A template, so that a text is never made a path first.
  template <std::same_as<std::filesystem::path> Path>
  PathArgument(const Path& path) : _text(path.native()) {}  // NOLINT: implicit by intent

  constexpr operator std::string_view() const { return _text; }  // NOLINT: implicit by intent

 private:
  std::string_view _text;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_

// A path, as every question of the component takes it.

#ifndef UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_
#define UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_

#include <concepts>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <type_traits>

#include "utils/path_filter/base/export.h"

namespace path_filter {

/// The text of a path, and the path of a text: the component's own paths are bytes. On POSIX the
/// path's own; on Windows WTF-8 (which is UTF-8 but for names that are no valid UTF-16), with "/"
/// for "\". Bytes that are no WTF-8 give U+FFFD there.
PATH_FILTER_EXPORT std::string path_text(const std::filesystem::path& path);
PATH_FILTER_EXPORT std::filesystem::path path_of(std::string_view text);

/// What views a text of any kind or a std::filesystem::path, without copying it where the path is
/// bytes: for parameters only, as it must not outlive what it was made of. A path is its bytes;
/// those of a name need not be valid UTF-8.
class PathArgument {
 public:
  template <std::convertible_to<std::string_view> Text>
  constexpr PathArgument(const Text& text) : _text(text) {}  // NOLINT: implicit by intent

  PathArgument(std::nullptr_t) = delete;

  // A template, so that a text is never made a path first.
  template <std::same_as<std::filesystem::path> Path>
  PathArgument(const Path& path) : _text(_viewed(path)) {}  // NOLINT: implicit by intent

  constexpr operator std::string_view() const { return _text; }  // NOLINT: implicit by intent

 private:
  struct Viewed {
    std::string_view operator()(const auto& path) const { return path.native(); }
  };
  class Converted {
   public:
    Converted() = default;
    Converted(const Converted&) = delete;  // it is viewed
    std::string_view operator()(const auto& path) { return _text = path_text(path); }

   private:
    std::string _text;
  };

  [[no_unique_address]] std::conditional_t<std::is_same_v<std::filesystem::path::value_type, char>,
                                           Viewed, Converted>
      _viewed;
  std::string_view _text;
};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_BASE_PATH_ARGUMENT_H_

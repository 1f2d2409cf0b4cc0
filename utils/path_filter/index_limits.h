// What the configuration's `index` section lets into the index: a largest file size,
// and optionally a list of languages.

#ifndef UTILS_PATH_FILTER_INDEX_LIMITS_H_
#define UTILS_PATH_FILTER_INDEX_LIMITS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#ifndef PATH_FILTER_STATIC
#pragma GCC visibility push(default)  // what a shared library shows
#endif

namespace path_filter {

/// The size limit, in MiB, in place of an unusable one.
inline constexpr std::int64_t DEFAULT_MAX_FILE_SIZE_MB = 10;

namespace internal {

/// Bytes in one of the configuration's megabytes.
inline constexpr std::int64_t MIB = 1048576;

}  // namespace internal

/// A value of the configuration file, of whatever type the file gave it.
struct ConfigValue {
  using List = std::vector<ConfigValue>;
  /// A value of a type that means nothing here, as the file wrote it.
  struct Other {
    std::string literal;
  };
  std::variant<std::monostate, bool, std::int64_t, double, std::string, List, Other> value;
};

/// The configuration's `index` section. A field that is absent is one that the section
/// lacks; one that holds std::monostate was given no value.
struct IndexConfig {
  std::optional<ConfigValue> max_file_size_mb;
  std::optional<ConfigValue> languages;
};

/// A set of language names, spelled as the registry spells them.
using LanguageSet = std::set<std::string, std::less<>>;

/// The limits of an index. A value that can be assigned as a whole and not otherwise
/// changed; threads may share one.
class IndexLimits {
 public:
  IndexLimits(std::int64_t max_file_bytes, std::optional<LanguageSet> languages)
      : _max_file_bytes(max_file_bytes), _languages(std::move(languages)) {}

  /// The largest size, in bytes, of a file that is indexed.
  std::int64_t max_file_bytes() const { return _max_file_bytes; }
  /// The languages whose files are indexed; absent: every language.
  const std::optional<LanguageSet>& languages() const { return _languages; }

  /// The limits that `index` asks for.
  ///
  /// The size is a number of MiB: an integer, a real number, a boolean (1 or 0), or a
  /// text that holds a decimal number. One that does not give a positive number of
  /// bytes is replaced by the default, with one warning in the log; one beyond the
  /// range of max_file_bytes is that range's end.
  ///
  /// The languages are a list of names, taken as they are; none, an empty list and an empty
  /// text restrict nothing, and "typescript" brings "tsx". Throws std::invalid_argument
  /// when `index` lacks a field or its languages are not a list of names.
  static IndexLimits from_config(const IndexConfig& index);

  /// Whether files of `language` are indexed. Only code and documentation languages
  /// are ever restricted; asks the registry for the tier when there is a restriction.
  bool allows(std::string_view language) const;

  bool operator==(const IndexLimits&) const = default;

 private:
  std::int64_t _max_file_bytes;
  std::optional<LanguageSet> _languages;
};

}  // namespace path_filter

#ifndef PATH_FILTER_STATIC
#pragma GCC visibility pop
#endif

template <>
struct std::hash<path_filter::IndexLimits> {
  std::size_t operator()(const path_filter::IndexLimits& limits) const noexcept;
};

#endif  // UTILS_PATH_FILTER_INDEX_LIMITS_H_

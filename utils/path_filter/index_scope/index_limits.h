// What the configuration's `index` section lets into the index: a largest file size,
// and optionally a list of languages.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_LIMITS_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_LIMITS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "utils/path_filter/base/export.h"

namespace path_filter {

/// The size limit, in MiB, in place of an unusable one.
inline constexpr std::int64_t DEFAULT_MAX_FILE_SIZE_MB = 10;

/// A value of the configuration file.
struct ConfigValue {
  /// A value of a type that means nothing here, as the file writes it.
  struct Other {
    std::string literal;
  };
  /// Nothing, an integer (a boolean is 1 or 0), a real number, a text, or something else.
  std::variant<std::monostate, std::int64_t, double, std::string, Other> value;
};

/// The configuration's `index` section. A field that is absent is one that the section lacks.
struct IndexConfig {
  std::optional<ConfigValue> max_file_size_mb;
  /// Names of languages, taken as they are; none restrict nothing.
  std::optional<std::vector<std::string>> languages;
};

/// A set of language names, spelled as the registry spells them.
using LanguageSet = std::set<std::string, std::less<>>;

/// The limits of an index. A value that can be assigned as a whole and not otherwise
/// changed; threads may share one.
class PATH_FILTER_EXPORT IndexLimits {
 public:
  IndexLimits(std::int64_t max_file_bytes, std::optional<LanguageSet> languages)
      : _max_file_bytes(max_file_bytes), _languages(std::move(languages)) {}

  /// The largest size, in bytes, of a file that is indexed.
  std::int64_t max_file_bytes() const { return _max_file_bytes; }
  /// The languages whose files are indexed; absent: every language.
  const std::optional<LanguageSet>& languages() const { return _languages; }

  /// The limits that `index` asks for. The size is a number of MiB, or a text that holds a
  /// decimal number; one that does not give a positive number of bytes is replaced by the
  /// default, with one warning in the log, and one beyond the range of max_file_bytes is that
  /// range's end. "typescript" brings "tsx". Throws std::invalid_argument when `index` lacks a
  /// field.
  static IndexLimits from_config(const IndexConfig& index);

  /// Whether files of `language` are indexed. Only code and documentation languages
  /// are ever restricted; asks the registry for the tier when there is a restriction.
  bool allows(std::string_view language) const;

  bool operator==(const IndexLimits&) const = default;

 private:
  std::int64_t _max_file_bytes;
  std::optional<LanguageSet> _languages;
};

namespace internal {

/// Bytes in one of the configuration's megabytes.
inline constexpr std::int64_t MIB = 1048576;

/// The warning in place of an unusable size: the value and the default are its arguments.
inline constexpr std::string_view UNUSABLE_SIZE_WARNING =
    "index.max_file_size_mb=%r is not a positive number; using %d";

// What IndexLimits::from_config makes of the two fields: the size in bytes, absent when it is
// unusable, and the languages. A host that logs the configuration's own value calls these.
std::optional<std::int64_t> configured_bytes(const ConfigValue& size);
std::optional<LanguageSet> configured_languages(std::span<const std::string>);

}  // namespace internal
}  // namespace path_filter

template <>
struct std::hash<path_filter::IndexLimits> {
  PATH_FILTER_EXPORT std::size_t operator()(const path_filter::IndexLimits& limits) const noexcept;
};

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_INDEX_LIMITS_H_

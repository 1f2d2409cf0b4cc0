// The verdict on a file: whether it is indexed, and if not, by which rule and why.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_DECISION_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_DECISION_H_

#include <array>
#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "utils/path_filter/base/export.h"

namespace path_filter {

/// The index's own data directory, relative to the repository root.
inline constexpr std::string_view INDEX_DATA_DIR = "memory/codebase-index";

/// Why a file is left out, in the order in which a scope applies its rules.
enum class Exclusion : unsigned char {
  directory,         // a directory on its way is skipped by the fixed rules
  index_data,        // it lies in INDEX_DATA_DIR
  unknown_language,  // it is of no language the index reads
  lockfile,          // it is a dependency lock
  minified,          // it is a minified bundle
  gitignore,         // git's ignore rules leave it out
  size,              // it is larger than the configured size limit
  language,          // its language is not in the configured list
};

/// All kinds, in their order.
inline constexpr std::array ALL_EXCLUSIONS{
    Exclusion::directory, Exclusion::index_data, Exclusion::unknown_language,
    Exclusion::lockfile,  Exclusion::minified,   Exclusion::gitignore,
    Exclusion::size,      Exclusion::language};

/// The kind's text, under which it is reported: "directory", "index_data", and so on.
constexpr std::string_view to_string(Exclusion kind) {
  constexpr std::array<std::string_view, 8> TEXTS{"directory", "index_data", "unknown_language",
                                                  "lockfile",  "minified",   "gitignore",
                                                  "size",      "language"};
  return TEXTS[static_cast<std::size_t>(kind)];
}

inline std::ostream& operator<<(std::ostream& out, Exclusion kind) {
  return out << to_string(kind);
}

/// The verdict on one file. It is true when the file is indexed. A value: it can be copied,
/// moved, compared, hashed and assigned as a whole, and nothing in it can be changed.
///
///   const Decision decision = scope.is_indexable("src/app.py");
///   if (!decision) log("{}: {}", to_string(*decision.kind()), decision.reason());
///
/// As a scope makes them, an indexed file has a language, no kind and no reason; one
/// that is left out has a kind and a reason, and a language when it was known before
/// the rule decided.
class Decision {
 public:
  /// Any combination. A number or a text is no bool.
  explicit Decision(std::same_as<bool> auto indexable, std::optional<Exclusion> kind = std::nullopt,
                    std::string reason = {}, std::optional<std::string> language = std::nullopt)
      : _indexable(indexable),
        _kind(kind),
        _reason(std::move(reason)),
        _language(std::move(language)) {}

  /// The verdict that a file is indexed.
  PATH_FILTER_EXPORT static Decision indexed(std::string_view language);

  /// The verdict that leaves a file out by a rule whose reason is fixed. Throws
  /// std::out_of_range for `size` and `language`.
  PATH_FILTER_EXPORT static Decision excluded(
      Exclusion kind, std::optional<std::string_view> language = std::nullopt);

  bool indexable() const { return _indexable; }
  /// The rule that leaves the file out; absent when the file is in.
  std::optional<Exclusion> kind() const { return _kind; }
  /// Why, for a log line or a list of skipped files; empty when the file is in. A view into
  /// the decision; a temporary decision gives a text, to be kept as a std::string.
  std::string_view reason() const& { return _fixed_reason.empty() ? _reason : _fixed_reason; }
  std::string reason() && { return std::string(std::as_const(*this).reason()); }
  /// The language the file is indexed as, by its name in the registry.
  const std::optional<std::string>& language() const& { return _language; }
  std::optional<std::string> language() && { return std::move(_language); }

  explicit operator bool() const { return _indexable; }
  bool operator==(const Decision& other) const {
    return _indexable == other._indexable && _kind == other._kind && reason() == other.reason() &&
           _language == other._language;
  }

 private:
  bool _indexable;
  std::optional<Exclusion> _kind;
  std::string_view _fixed_reason;  // of its kind, in place of _reason: most take no memory
  std::string _reason;
  std::optional<std::string> _language;
};

namespace internal {

/// The reason texts of the kinds whose reason is fixed. Those of `size` and `language`
/// name the file's own size or language and have no entry.
inline constexpr std::array<std::pair<Exclusion, std::string_view>, 6> REASONS{{
    {Exclusion::directory, "in a directory the index skips"},
    {Exclusion::index_data, "in the index's own data directory (memory/codebase-index)"},
    {Exclusion::unknown_language, "of no language the index reads"},
    {Exclusion::lockfile, "a dependency lock"},
    {Exclusion::minified, "a minified bundle"},
    {Exclusion::gitignore, "ignored by git's ignore rules"},
}};

/// The fixed reason text of `kind`. Throws std::out_of_range for one without.
std::string_view reason_of(Exclusion kind);

}  // namespace internal

/// `path`, relative to the repository root, with "/" between components: each
/// backslash becomes a "/", nothing else changes. The result is `path` itself, or a
/// view into `storage` when something was to be replaced. Throws std::invalid_argument
/// for an absolute path: one that then begins with "/", or with any one character and
/// ":/". A byte that is not UTF-8 is a character.
PATH_FILTER_EXPORT std::string_view _relative_posix(std::string_view path, std::string& storage);

}  // namespace path_filter

template <>
struct std::hash<path_filter::Decision> {
  PATH_FILTER_EXPORT std::size_t operator()(const path_filter::Decision& decision) const noexcept;
};

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_DECISION_H_

// The language registry: which language a file name belongs to, what tier that
// language is of, which files are dependency locks, and each language's test
// conventions.
//
// This header is a seam. It declares what path_filter asks of a registry and
// nothing about where the answers come from; the registry that is linked answers.
// The library `language_registry` (registry.cpp) is the default one, with a table
// compiled in. A host that has its own registry links its own definitions of the
// functions below instead: the calls are direct in both cases, so the choice costs
// the default nothing. A host whose registry only exists at run time links
// definitions that forward to it.
//
// Requirements on every implementation
//   Threads   All functions may be called from several threads at once.
//   Lifetime  Every string_view, pointer and reference that is returned stays valid
//             and unchanged until the process ends. A registry whose content
//             changes returns new objects and keeps the old ones.
//   Failure   An exception passes through path_filter to its caller unchanged.
//   Order     The functions may be called during static initialisation, from any
//             translation unit.

#ifndef UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_
#define UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>

namespace language_registry {

/// Hashes text of any string type alike, so that a set of strings is asked with a
/// string_view and builds no string.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>{}(text);
  }
};

/// A set of texts that is asked with a string_view.
using TextSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;

/// What the registry knows of the language of a file.
struct LanguageRecord {
  /// The language's tier. Two names have a meaning to path_filter: "code", the
  /// tier of programming languages, and "docs", that of documentation. Every
  /// other name is neither.
  std::string_view tier;
  /// Shell-style globs that the names of this language's test files match, in the
  /// order in which they are tried.
  std::span<const std::string_view> test_file_globs;
};

/// The registry object. It has no state of its own: its operations are defined by
/// the implementation that is linked.
struct Languages {
  /// The directory names, in lower case, that hold test code under the convention
  /// of some language.
  const TextSet& test_dir_names() const;

  /// The test file-name globs of all languages, in the registry's order.
  std::span<const std::string_view> test_file_globs() const;

  /// The record of the language that a file of this name is written in, or null
  /// when the name belongs to no language. `name` is a file name, not a path.
  const LanguageRecord* classify(std::string_view name) const;
};

/// The one registry object of the process; usable at any time, static
/// initialisation included.
inline constexpr Languages LANGUAGES{};

/// The name of the language that a file of this name is written in, for example
/// "typescript", or absent when the index reads no such language. `name` is a file
/// name, not a path.
std::optional<std::string_view> detect_language(std::string_view name);

/// Whether a file of this name is a dependency lock. `name` is a file name, not a
/// path.
bool is_lockfile(std::string_view name);

/// The tier of a language that `detect_language` named. What a name that the
/// registry does not know gives is the implementation's to say.
std::string_view tier_of(std::string_view language);

}  // namespace language_registry

#endif  // UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_

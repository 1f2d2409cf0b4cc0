// All that the default registry knows, for listing it. Only the library
// `language_registry` defines these functions; a host's own registry need not.

#ifndef UTILS_LANGUAGE_REGISTRY_CATALOG_H_
#define UTILS_LANGUAGE_REGISTRY_CATALOG_H_

#include <span>
#include <string_view>

#include "utils/language_registry/language_registry.h"

namespace language_registry {

/// A language of the registry and the file names that belong to it. Its tier is "code", "docs",
/// "data", "markup" or "config".
struct Language : LanguageRecord {
  /// At most 15 characters of a-z, 0-9 and "-".
  std::string_view name;
  /// Each with its leading dot. One with a capital letter matches in that case only, and goes
  /// before all others; the others match in any case.
  std::span<const std::string_view> extensions;
  /// Whole file names, which go before extensions and match in this case only.
  std::span<const std::string_view> file_names;
  /// A name of the form "<stem>.<anything>" is of this language when no extension matches.
  std::span<const std::string_view> file_name_stems;
};

/// All languages, ordered by name.
std::span<const Language> languages();

/// The file names of dependency locks, in the order of their package managers' languages. One "*"
/// in a name stands for any text.
std::span<const std::string_view> lockfile_names();

/// Names of files that often hold secrets, such as passwords, and that are of no language for it.
/// Those that begin with "*" stand for all that end as they do, in any case.
std::span<const std::string_view> secret_names();

/// The directory names that hold test code, in lower case and sorted.
std::span<const std::string_view> test_dir_names();

}  // namespace language_registry

#endif  // UTILS_LANGUAGE_REGISTRY_CATALOG_H_

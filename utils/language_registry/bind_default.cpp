// Makes the default registry the one that is linked.

#include "utils/language_registry/default_registry.h"
#include "utils/language_registry/language_registry.h"

/// Asked for by name where this library is linked: so it is, wherever it stands among the
/// others.
extern "C" {
PATH_FILTER_EXPORT extern const char path_filter_default_registry;
const char path_filter_default_registry = 0;
}

namespace language_registry {

const TextSet& Languages::test_dir_names() const { return default_registry::test_dir_names(); }

std::span<const std::string_view> Languages::test_file_globs() const {
  return default_registry::test_file_globs();
}

const LanguageRecord* Languages::classify(std::string_view name) const {
  return default_registry::classify(name);
}

std::optional<std::string_view> detect_language(std::string_view name) {
  return default_registry::detect_language(name);
}

bool is_lockfile(std::string_view name) { return default_registry::is_lockfile(name); }

std::string_view tier_of(std::string_view language) { return default_registry::tier_of(language); }

}  // namespace language_registry

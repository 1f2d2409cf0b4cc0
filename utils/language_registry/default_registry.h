// The default registry by its own name, for a host whose own registry asks it.

#ifndef UTILS_LANGUAGE_REGISTRY_DEFAULT_REGISTRY_H_
#define UTILS_LANGUAGE_REGISTRY_DEFAULT_REGISTRY_H_

#include <optional>
#include <span>
#include <string_view>

#include "utils/language_registry/language_registry.h"

/// What the functions of language_registry.h say, of which each has its namesake here.
namespace language_registry::default_registry {

const TextSet& test_dir_names();
std::span<const std::string_view> test_file_globs();
const LanguageRecord* classify(std::string_view name);
std::optional<std::string_view> detect_language(std::string_view name);
bool is_lockfile(std::string_view name);
/// Gives "" for a language that the registry does not know.
std::string_view tier_of(std::string_view language);

}  // namespace language_registry::default_registry

#endif  // UTILS_LANGUAGE_REGISTRY_DEFAULT_REGISTRY_H_

#include "utils/path_filter/path_rules.h"

#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/logger.h"

namespace path_filter {

using language_registry::LANGUAGES;

bool _skips_directory(std::string_view name, std::optional<std::string_view> parent_name) {
  if (ALWAYS_SKIP_DIRS.contains(name)) return true;
  if (name == ".github") return false;
  if (parent_name == ".github" && !GITHUB_ALLOWED_SUBDIRS.contains(name)) return true;
  if (name.starts_with('.') && !ALLOWED_HIDDEN_DIRS.contains(name)) return true;
  if (name.starts_with("__") || name.ends_with("__")) {
    std::string lower;
    internal::append_lower(name, lower);
    return !LANGUAGES.test_dir_names().contains(lower);
  }
  return name.ends_with(".egg-info");
}

bool should_skip_directory(PathArgument dirname, std::optional<PathArgument> parent_path) {
  if (!parent_path) return _skips_directory(dirname, std::nullopt);
  return _skips_directory(dirname, internal::last_component(*parent_path));
}

bool should_skip_path(PathArgument path) {
  internal::PathComponents components(path);
  std::optional<std::string_view> parent;
  while (const auto component = components.next()) {
    if (_skips_directory(*component, parent)) return true;
    parent = component;
  }
  return false;
}

bool is_indexable_path(PathArgument path) { return !should_skip_path(path); }

namespace {

struct Constants {
  language_registry::TextSet test_dir_names;
  std::vector<std::string> test_file_globs;
};

const Constants& constants() {
  static const Constants loaded = [] {
    internal::loaded_logger();
    // Asked once: a registry may return another object each time.
    const auto globs = LANGUAGES.test_file_globs();
    return Constants{LANGUAGES.test_dir_names(), {globs.begin(), globs.end()}};
  }();
  return loaded;
}

}  // namespace

void load() { constants(); }

namespace internal {

const language_registry::TextSet& loaded_test_dir_names() { return constants().test_dir_names; }

const std::vector<std::string>& loaded_test_file_globs() { return constants().test_file_globs; }

}  // namespace internal
}  // namespace path_filter

#include "utils/path_filter/path_rules/path_rules.h"

#include "utils/language_registry/text_table.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/utf8.h"

namespace path_filter {

using language_registry::LANGUAGES;
using language_registry::TextTable;

namespace {

constexpr TextTable always_skipped(ALWAYS_SKIP_DIRS);
constexpr TextTable allowed_hidden(ALLOWED_HIDDEN_DIRS);
constexpr TextTable allowed_in_github(GITHUB_ALLOWED_SUBDIRS);

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

bool _skips_directory(std::string_view name, std::optional<std::string_view> parent_name) {
  if (always_skipped.contains(name)) return true;
  if (name == ".github") return false;
  if (parent_name == ".github" && !allowed_in_github.contains(name)) return true;
  if (name.starts_with('.') && !allowed_hidden.contains(name)) return true;
  if (name.starts_with("__") || name.ends_with("__")) {
    std::string lower;
    internal::append_lower(name, lower);
    return !LANGUAGES.test_dir_names().contains(lower);
  }
  return name.ends_with(".egg-info");
}

bool should_skip_directory(PathArgument dirname, std::optional<PathArgument> parent_path) {
  if (!parent_path) return _skips_directory(dirname, std::nullopt);
  std::string storage;
  return _skips_directory(dirname,
                          internal::last_component(internal::native_path(*parent_path, storage)));
}

bool should_skip_path(PathArgument path) {
  std::string storage;
  internal::PathComponents components(internal::native_path(path, storage));
  std::optional<std::string_view> parent;
  while (const auto component = components.next()) {
    if (_skips_directory(*component, parent)) return true;
    parent = component;
  }
  return false;
}

bool is_indexable_path(PathArgument path) { return !should_skip_path(std::string_view(path)); }

void load() { constants(); }

namespace internal {

const language_registry::TextSet& loaded_test_dir_names() { return constants().test_dir_names; }

const std::vector<std::string>& loaded_test_file_globs() { return constants().test_file_globs; }

}  // namespace internal
}  // namespace path_filter

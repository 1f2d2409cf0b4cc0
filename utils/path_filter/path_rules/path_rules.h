// The fixed directory rules: whether the indexer stays out of a directory, judged by
// its name and the name of the directory above it. Dependency, build and cache
// directories, version control and other hidden directories, dunder directories that
// tools make, and packaging metadata are skipped, whatever the repository says.
//
// The rules read names only, never the disk, and nothing configures them. All
// functions are pure (but for one question to the language registry, see
// _skips_directory), keep nothing between calls, and may be called from any thread.
// They throw only what the registry throws.
//
//   should_skip_directory("node_modules")               // true
//   should_skip_directory("scripts", "/repo/.github")   // true
//   should_skip_path("src/main.py")                     // false
//
// Here, too, stand the constants that are taken from the language registry when the
// component is loaded.

#ifndef UTILS_PATH_FILTER_PATH_RULES_PATH_RULES_H_
#define UTILS_PATH_FILTER_PATH_RULES_PATH_RULES_H_

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/export.h"
#include "utils/path_filter/base/loaded.h"
#include "utils/path_filter/base/path_argument.h"

namespace path_filter {

/// Directory names that are skipped wherever they occur.
inline constexpr std::array<std::string_view, 23> ALWAYS_SKIP_DIRS{
    ".cache",       ".git",  ".gradle",       ".mypy_cache", ".next",    ".npm",
    ".nuxt",        ".pixi", ".pytest_cache", ".ruff_cache", ".tox",     ".uv",
    ".venv",        ".yarn", "__pycache__",   "build",       "coverage", "dist",
    "node_modules", "obj",   "out",           "target",      "venv"};

/// Hidden directory names that are not skipped for being hidden.
inline constexpr std::array<std::string_view, 5> ALLOWED_HIDDEN_DIRS{".circleci", ".github",
                                                                     ".gitlab", ".idea", ".vscode"};

/// The only names admitted directly below a directory named ".github".
inline constexpr std::array<std::string_view, 4> GITHUB_ALLOWED_SUBDIRS{
    "ISSUE_TEMPLATE", "PULL_REQUEST_TEMPLATE", "actions", "workflows"};

/// Whether the indexer skips a directory of this name. `parent_name` is the name of
/// the directory directly above, absent at the top. Asks the registry for its test
/// directory names when `name` begins or ends with "__", as a test directory such as
/// "__tests__" stays.
PATH_FILTER_EXPORT bool _skips_directory(std::string_view name,
                                         std::optional<std::string_view> parent_name);

/// Whether the indexer skips the directory `dirname` (one name, not split) that lies
/// in the directory `parent_path`.
PATH_FILTER_EXPORT bool should_skip_directory(
    PathArgument dirname, std::optional<PathArgument> parent_path = std::nullopt);

/// Whether any component of `path` is skipped, its last one included: a file named
/// ".env" or "__init__.py" is, by this rule. `path` is relative or absolute, with "/"
/// between components.
PATH_FILTER_EXPORT bool should_skip_path(PathArgument path);

/// Whether no component of `path` is skipped: the opposite of should_skip_path.
PATH_FILTER_EXPORT bool is_indexable_path(PathArgument path);

/// Loads the component: creates its logger and takes the two constants below from
/// the registry, with one call for each. The first use of either constant does the
/// same, at any time, static initialisation included; a host calls load() to meet a
/// failure of its registry early. Safe from any thread; done once. Throws what the
/// registry throws, and the next call then tries again. The registry's functions
/// themselves are bound when the program is linked.
PATH_FILTER_EXPORT void load();

namespace internal {

PATH_FILTER_EXPORT const language_registry::TextSet& loaded_test_dir_names();
PATH_FILTER_EXPORT const std::vector<std::string>& loaded_test_file_globs();

}  // namespace internal

/// The registry's test directory names, as they were when the component was loaded:
/// *TEST_DIR_NAMES is the set, TEST_DIR_NAMES.contains("tests") asks it.
inline constexpr internal::Loaded<const language_registry::TextSet, internal::loaded_test_dir_names>
    TEST_DIR_NAMES{};

/// The registry's test file-name globs, as they were when the component was loaded,
/// in the registry's order.
inline constexpr internal::Loaded<const std::vector<std::string>, internal::loaded_test_file_globs>
    TEST_FILE_GLOBS{};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_PATH_RULES_PATH_RULES_H_

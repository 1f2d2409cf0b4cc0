#include "utils/path_filter/path_rules.h"

#include <gtest/gtest.h>
#include <spdlog/spdlog.h>

#include <optional>
#include <string_view>
#include <vector>

#include "tests/support.h"

namespace path_filter {
namespace {

/// Uses a constant before main and before any static of another unit is known to be
/// made: loading must work at any time.
const bool loaded_during_static_initialisation = TEST_DIR_NAMES->contains("tests");

TEST(PathRules, SkipDirectory) {
  struct Row {
    std::string_view name;
    std::optional<std::string_view> parent;
    bool skipped;
  };
  constexpr std::nullopt_t TOP = std::nullopt;
  constexpr std::string_view GITHUB = "/repo/.github";
  const Row rows[] = {
      {"node_modules", TOP, true},
      {"Node_Modules", TOP, false},
      {"build", TOP, true},
      {"builds", TOP, false},
      {"venv", TOP, true},
      {".venv", TOP, true},
      {"target", "/repo", true},
      {"coverage", "", true},
      {".github", TOP, false},
      {".github", GITHUB, false},
      {"workflows", GITHUB, false},
      {"actions", GITHUB, false},
      {"scripts", GITHUB, true},
      {"issue_template", GITHUB, true},
      {".vscode", GITHUB, true},
      {"__tests__", GITHUB, true},
      {"node_modules", GITHUB, true},
      {"scripts", "/repo/.github/", true},
      {"scripts", "repo/.github/./", true},
      {"scripts", "", false},
      {"scripts", ".", false},
      {"scripts", "/", false},
      {"workflows", TOP, false},
      {".vscode", TOP, false},
      {".idea", TOP, false},
      {".circleci", TOP, false},
      {".gitlab", TOP, false},
      {".git", TOP, true},
      {".env", TOP, true},
      {".", TOP, true},
      {"..", TOP, true},
      {"__pycache__", TOP, true},
      {"__snapshots__", TOP, true},
      {"__tests__", TOP, false},
      {"__mocks__", TOP, false},
      {"__TESTS__", TOP, false},
      {"__init__", TOP, true},
      {"__", TOP, true},
      {"foo__", TOP, true},
      {"_private", TOP, false},
      {"pkg.egg-info", TOP, true},
      {"pkg.EGG-INFO", TOP, false},
      {"egg-info", TOP, false},
      {"", TOP, false},
      {"a/node_modules", TOP, false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(should_skip_directory(row.name, row.parent), row.skipped)
        << row.name << " in " << row.parent.value_or("(top)");
  }
}

TEST(PathRules, SkipPath) {
  struct Row {
    std::string_view path;
    bool skipped;
  };
  const Row rows[] = {
      {"src/main.py", false},
      {".mypy_cache/data.json", true},
      {"__pycache__/module.pyc", true},
      {".github/workflows/ci.yml", false},
      {".github/scripts/run.sh", true},
      {"docs/.github/workflows/x.yml", false},
      {"docs/.github//./scripts/x.sh", true},
      {"pkg/__init__.py", true},
      {"src/.env", true},
      {"../src/a.py", true},
      {"./src/a.py", false},
      {"/home/u/src/a.py", false},
      {"//srv/x", false},
      {"///srv/x/build", true},
      {"", false},
      {".", false},
      {"src\\node_modules\\x.js", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(should_skip_path(row.path), row.skipped) << row.path;
    EXPECT_EQ(is_indexable_path(row.path), !row.skipped) << row.path;
    EXPECT_EQ(should_skip_path(std::filesystem::path(row.path)), row.skipped) << row.path;
  }
}

TEST(PathRules, AsksTheRegistryOnlyForDunderNamesAndEachTime) {
  const int before = test_registry::test_dir_names_calls;
  should_skip_directory("src");
  EXPECT_EQ(test_registry::test_dir_names_calls, before);
  should_skip_directory("__tests__");
  should_skip_directory("__tests__");
  EXPECT_EQ(test_registry::test_dir_names_calls, before + 2);

  test_registry::failing = true;
  EXPECT_FALSE(should_skip_directory("src"));
  EXPECT_THROW(should_skip_directory("__tests__"), std::runtime_error);
  test_registry::failing = false;
}

TEST(PathRules, Constants) {
  EXPECT_TRUE(loaded_during_static_initialisation);
  EXPECT_EQ(ALWAYS_SKIP_DIRS.size(), 23U);
  for (const std::string_view name : ALWAYS_SKIP_DIRS) {
    EXPECT_TRUE(ALWAYS_SKIP_DIRS.contains(name)) << name;
  }
  EXPECT_EQ(*TEST_DIR_NAMES, language_registry::LANGUAGES.test_dir_names());
  EXPECT_EQ(*TEST_FILE_GLOBS, (std::vector<std::string>{"test_*.py", "*_test.py", "*Test.java"}));
  EXPECT_EQ(spdlog::get("utils.path_filter").get(), &*logger);
}

}  // namespace
}  // namespace path_filter

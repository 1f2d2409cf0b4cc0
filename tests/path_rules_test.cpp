#include "utils/path_filter/path_rules/path_rules.h"

#include <gtest/gtest.h>

#include <optional>
#include <string_view>
#include <vector>

#include "tests/support.h"

namespace path_filter {
namespace {

/// Before main and before any static of another unit is known to be made: loading must
/// work at any time, fail with the registry, and then be tried again. The log is there
/// all the same.
const bool loaded_early = [] {
  test_registry::failing = true;
  EXPECT_THROW(load(), std::runtime_error);
  EXPECT_EQ(logger->name(), "utils.path_filter");
  test_registry::failing = false;
  return TEST_DIR_NAMES.contains("tests") && TEST_FILE_GLOBS.size() == 3;
}();

TEST(PathRules, SkipDirectory) {
  const auto skips = [](auto... of) { return should_skip_directory(of...); };
  for (const char* name :
       {"node_modules", "build", "venv", ".venv", ".git", ".env", ".", "..", "__", "__pycache__",
        "__snapshots__", "__init__", "foo__", "pkg.egg-info"})
    EXPECT_TRUE(skips(name, std::nullopt) && skips(name, "/.github/x") && skips(name, "")) << name;
  for (const char* name : {"Node_Modules", "builds", ".github", ".vscode", ".idea", ".circleci",
                           ".gitlab", "workflows", "scripts", "__tests__", "__mocks__", "__TESTS__",
                           "_private", "pkg.EGG-INFO", "egg-info", "", "a/node_modules"})
    EXPECT_FALSE(skips(name, std::nullopt) || skips(name, "/.github/x") || skips(name, "")) << name;
  for (const std::filesystem::path parent : {".github", "/repo/.github/", "repo/.github/./"}) {
    for (const char* name : {"scripts", "issue_template", ".vscode", "__tests__", "node_modules"})
      EXPECT_TRUE(skips(name, parent) && skips(name, path_text(parent))) << name << parent;
    for (const char* name : {".github", "workflows", "actions"})
      EXPECT_FALSE(skips(name, parent)) << name << parent;
  }
}

TEST(PathRules, SkipPath) {
  for (const std::string_view path :
       {".mypy_cache/data.json", "a/__pycache__", ".github/scripts/run.sh",
        "docs/.github//./scripts/x.sh", "pkg/__init__.py", "src/.env", "../src/a.py", "///x/build"})
    EXPECT_TRUE(should_skip_path(path) && !is_indexable_path(std::filesystem::path(path))) << path;
  for (const std::string_view path :
       {"src/main.py", ".github/workflows/ci.yml", "a/.github/workflows/x.yml", "./src/a.py",
        "/home/u/a.py", "//srv/x", "", "."})
    EXPECT_TRUE(is_indexable_path(path) && !should_skip_path(path)) << path;
  // A path is one of this system.
  EXPECT_NE(should_skip_path("src\\node_modules\\x.js"), test_system::NAMES_ARE_BYTES);
}

TEST(PathRules, AsksTheRegistryForDunderNamesEachTimeAndForTheConstantsOnce) {
  EXPECT_TRUE(loaded_early);
  EXPECT_EQ(*TEST_DIR_NAMES, language_registry::LANGUAGES.test_dir_names());
  EXPECT_EQ(*TEST_FILE_GLOBS, (std::vector<std::string>{"test_*.py", "*_test.py", "*Test.java"}));
  EXPECT_EQ(test_registry::test_file_globs_calls, 1);
  const int before = test_registry::test_dir_names_calls;
  for (const char* name : {"src", "__tests__", "__tests__"}) should_skip_directory(name);
  EXPECT_EQ(test_registry::test_dir_names_calls, before + 2);
}

}  // namespace
}  // namespace path_filter

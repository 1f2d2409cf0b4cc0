#include "utils/path_filter/test_code.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/internal/text.h"

namespace path_filter {
namespace {

TEST(TestCode, IsTestPath) {
  struct Row {
    std::string_view path;
    bool is_test;
  };
  const Row rows[] = {
      {"docs/tests/guide.md", false},
      {"tests/fixtures/users.json", false},
      {"tests/unknown.bin", false},
      {"UserServiceTest.java", true},
      {"src/main/UserServiceTest.java", true},
      {"src/Latest.java", false},
      {"src/latesttest.java", false},
      {"test_a.py", true},
      {"src\\test_a.py", true},
      {"Tests/Foo.cs", true},
      {"src/TESTS/foo.cs", true},
      {"src\\TESTS\\foo.cs", true},
      {"src/\xC3\x89TESTS/foo.cs", true},
      {"test_utils/strings.py", false},
      {"src/contest/a.py", false},
      {"/home/tests/repo/src/a.py", true},
      {"//tests/a.py", true},
      {"tests/../src/a.py", true},
      {"./a//tests/./a.py", true},
      {"tests/a.py/", true},
      {"a.py/tests", false},
      {"tests", false},
      {"", false},
      {".", false},
      {"/", false},
  };
  for (const Row& row : rows) EXPECT_EQ(is_test_path(row.path), row.is_test) << row.path;

  test_registry::failing = true;
  EXPECT_THROW(is_test_path("a.py"), std::runtime_error);
  test_registry::failing = false;
}

TEST(TestCode, ProductionPaths) {
  using Paths = std::vector<std::string>;
  const Paths mixed{"src/b.py", "tests/a.py", "src/a.py", "src/b.py"};
  EXPECT_EQ(production_paths(mixed), (Paths{"src/b.py", "src/a.py", "src/b.py"}));
  EXPECT_EQ(production_paths(mixed, {.include_tests = true}), mixed);
  EXPECT_EQ(production_paths(Paths{}), Paths{});
  const Paths tests{"tests/b.py", "tests/a.py"};
  EXPECT_EQ(production_paths(tests), tests);

  struct OnePass {
    std::istringstream stream{"tests/a.py src/a.py"};
    auto begin() { return std::istream_iterator<std::string>(stream); }
    auto end() { return std::istream_iterator<std::string>(); }
  };
  EXPECT_EQ(production_paths(OnePass()), Paths{"src/a.py"});
}

TEST(TestCode, ShellGlobs) {
  struct Row {
    std::string_view pattern;
    std::string_view text;
    bool matches;
  };
  const Row rows[] = {
      {"*.min.js", "a.min.js", true},
      {"*.min.js", ".min.js", true},
      {"*.min.js", "a.min.js.map", false},
      {"*.min.js", "a.MIN.js", false},
      {"*a*b", "a/xb", true},
      {"a?c",
       "a\xC3\xA9"
       "c",
       true},
      {"a?c", "ac", false},
      {"a?c",
       "a\xFF"
       "c",
       true},
      {"??", "\xC3\xA9", false},
      {"[abc]x", "bx", true},
      {"[!abc]x", "bx", false},
      {"[!abc]x", "dx", true},
      {"[a-c]", "b", true},
      {"[c-a]", "b", false},
      {"[\xC3\xA0-\xC3\xAF]", "\xC3\xA9", true},
      {"[]]", "]", true},
      {"[!]]", "a", true},
      {"[a", "[a", true},
      {"[a", "a", false},
      {"*[", "x[", true},
      {"[a-]", "-", true},
      {"[^a]", "^", true},
      {"[[:alpha:]]", "a]", true},
      {"a\\*", "a\\b", true},
      {"", "", true},
      {"", "a", false},
      {"*", "", true},
      {"**", "abc", true},
      {"*?*?*", "a", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(internal::shell_glob_matches(row.pattern, row.text), row.matches)
        << row.pattern << " on " << row.text;
  }
}

TEST(TestCode, TextHelpers) {
  EXPECT_EQ(internal::trim(" \t\r\n\x1F\xC2\xA0\xE3\x80\x80x y\xE2\x80\xA9\xC2\x85 "), "x y");
  EXPECT_EQ(internal::trim("\xE3\x80"), "\xE3\x80");
  EXPECT_EQ(internal::replace_invalid_utf8("a\xFF"
                                           "b\xE2\x82"
                                           "c\xF0\x9F\x98"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD"
            "c\xEF\xBF\xBD");
  EXPECT_EQ(internal::replace_invalid_utf8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(internal::quoted("a\\b'\n\x01"), "'a\\\\b\\'\\n\\x01'");
}

}  // namespace
}  // namespace path_filter

#include "utils/path_filter/test_code/test_code.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/test_code/shell_glob.h"

namespace path_filter {
namespace {

using Paths = std::vector<std::string>;

TEST(TestCode, IsTestPath) {
  for (const char* path :
       {"UserServiceTest.java", "src/main/UserServiceTest.java", "test_a.py", "src\\test_a.py",
        "Tests/Foo.cs", "src\\TESTS\\foo.cs", "src/ÉTESTS/foo.cs", "/home/tests/repo/src/a.py",
        "//tests/a.py", "tests/../src/a.py", "./a//tests/./a.py", "tests/a.py/"})
    EXPECT_TRUE(is_test_path(path) && is_test_path(path_of(path))) << path;
  for (const char* path : {"docs/tests/guide.md", "tests/fixtures/users.json", "tests/unknown.bin",
                           "src/Latest.java", "src/latesttest.java", "test_utils/strings.py",
                           "src/contest/a.py", "a.py/tests", "tests", "é/a.py", "", ".", "/"})
    EXPECT_FALSE(is_test_path(path)) << path;
}

TEST(TestCode, ProductionPaths) {
  const Paths tests{"tests/b.py", "a_test.py"};
  const Paths mixed{"src/b.py", "tests/a.py", "src/a.py", "src/b.py"};
  EXPECT_EQ(production_paths(mixed), (Paths{"src/b.py", "src/a.py", "src/b.py"}));
  EXPECT_EQ(production_paths(mixed, {.include_tests = true}), mixed);
  EXPECT_EQ(production_paths(tests), tests);
  struct OnePass {
    std::istringstream stream{"tests/a.py src/a.py"};
    auto begin() { return std::istream_iterator<std::string>(stream); }
    auto end() { return std::istream_iterator<std::string>(); }
  };
  EXPECT_EQ(production_paths(OnePass()), Paths{"src/a.py"});
}

using internal::shell_glob_matches;

TEST(TestCode, ShellGlobs) {
  std::istringstream rows(R"(
      *.min.js a.min.js a.min.js.map  *.min.js .min.js a.MIN.js  *a*b a/xb ba  a?c aéc ac  ?? ab é
      [abc]x bx dx  [!abc]x dx bx  [a-c] a d  [a-c] b -  [a-c] c 0  [à-ï] é a  []] ] a  [!]] a ]
      [a [a a  *[ x[ x  [a-] - b  [^a] ^ b  [[:alpha:]] a] a  a\* a\b a  ab ab abc  *?*?* ab a
      a[b]c* abcd abd  *[b]*a xbyba xaya  ?c éc éé  a?[ ab[ ab  a* a b  *aa*ab aaab aab)");
  for (std::string pattern, matches, other; rows >> pattern >> matches >> other;) {
    EXPECT_TRUE(shell_glob_matches(pattern, matches)) << pattern;
    EXPECT_FALSE(shell_glob_matches(pattern, other)) << pattern;
  }
  EXPECT_TRUE(shell_glob_matches("", "") && shell_glob_matches("?", "\xFF"));
  EXPECT_FALSE(shell_glob_matches("", "a") || shell_glob_matches("?", ""));
}

TEST(TestCode, TextHelpers) {
  using Row = std::pair<std::string_view, std::string>;
  for (const auto& [text, lower] :
       {Row{"AZ@[`{", "az@[`{"}, Row{"ÉK\xFF\xC3", "ék\xFF\xC3"}, Row{"TİP", "ti̇p"},
        Row{"ΣΣΣ", "σσς"}, Row{"Σ 1Σ", "σ 1σ"}, Row{"AΣ'.\u00AD", "aς'.\u00AD"},
        Row{"AΣ'B", "aσ'b"}, Row{"A'\u0301Σ", "a'\u0301ς"}, Row{"A1Σ", "a1σ"}, Row{"AΣ1B", "aς1b"},
        Row{"ⅠΣⅰ", "ⅰσⅰ"}, Row{"ªΣ🄰", "ªσ🄰"}, Row{"🅉Σº", "🅉σº"}, Row{"🅐Σ🅩", "🅐σ🅩"},
        Row{"🅰Σ🆉", "🅰σ🆉"}, Row{"🄯Σ", "🄯σ"}, Row{"ʰΣ", "ʰσ"}, Row{"A\xFFΣ", "a\xFFσ"}}) {
    std::string out = "+";
    internal::append_lower(text, out);
    EXPECT_EQ(out, "+" + lower);
  }
  EXPECT_EQ(internal::trim(" \t\r\n\x1F\u00A0\u3000x y\xE3\x80\u2029\u0085 "), "x y\xE3\x80");
  EXPECT_EQ(internal::replace_invalid_utf8("a\xFFz\xE2\x82z\xED\xA0\x80z\xF0\x9F\x98"),
            "a\uFFFDz\uFFFDz\uFFFD\uFFFD\uFFFDz\uFFFD");
  EXPECT_EQ(internal::quoted("a\\b'\n\x01"), "'a\\\\b\\'\\n\\x01'");
}

TEST(TestCode, PlainTextsOfAllSizes) {  // they are looked at eight bytes at a time
  for (std::size_t size = 0; size < 20; ++size) {
    std::string text(size, '~');
    EXPECT_TRUE(internal::is_plain(text)) << size;
    for (char& place : text) {
      for (int byte = 0; byte < 256; ++byte) {
        place = static_cast<char>(byte);
        const bool plain = byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
        EXPECT_EQ(internal::is_plain(text), plain) << byte << " in " << size;
      }
      place = ' ';
    }
  }
}

}  // namespace
}  // namespace path_filter

// Patterns made to explode. What patterns match is held against git by
// fuzz/git_differential.cpp.

#include "utils/path_filter/git_ignore/git_glob.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/temp_tree.h"
#include "utils/path_filter/git_ignore/git_ignore.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace path_filter {

/// Matched in every way, or built in the square of their text, these would take from a quarter
/// of an hour to longer than the universe lasts.
TEST(GitGlob, HostilePatternsEnd) {
  const std::string as(4000, 'a');
  std::string directories = "b";
  while (directories.size() < 8000) directories.insert(0, "a/a/a/a/");
  using Row = std::array<std::string_view, 4>;  // what is repeated is the second
  for (const auto& [front, piece, back, path] :
       {Row{"", "*a", "*c*", as}, Row{"", "*[!b]", "*[!a]*", as}, Row{"", "*??*?", "?*", as},
        Row{"", "**/a/", "c/**/b", directories}, Row{"", "**/", "*/c/**", directories},
        // These two take pattern times text steps, the most that a pattern can take.
        Row{"*", "a", "[!a]*", as}, Row{"**/", "a/", "c/**", directories},
        Row{"**/", "*a*/**/", "[!a]*/**", directories}, Row{"**/", "*a", "*c*/**", directories},
        // Every "[:" may be a class, whose end is looked for.
        Row{"[", "[:", "x]"}, Row{"", "[[:", "]"}, Row{"", "*[", "]"}, Row{"", "[!ab]", "*"},
        Row{"", "\\ ", ""}, Row{"", " \\", ""}, Row{"", "**/", ""}}) {
    std::vector<std::string_view> lines(20, "x");  // enough for an index
    std::string line(front);
    for (int count = path.empty() ? 4'000'000 : 2000; count > 0; --count) line += piece;
    line += back;
    lines.push_back(line);
    const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
    EXPECT_FALSE(rules.check_file(path.empty() ? "a/b" : path).include) << line.substr(0, 12);
  }
  // Matched anew at each level, this takes minutes.
  const TempTree tree;
  std::string rules;
  for (int number = 0; number < 500; ++number) rules += "**/a/**/b/**/*c/**\n";
  tree.write(".gitignore", rules);
  EXPECT_FALSE(IndexScope(tree.root()).admits_directory(directories + '/' + directories + "/c/d"));
}

TEST(GitGlob, GoesOnAsIfMatchedAnew) {
  const std::array<std::string, 9> pieces{"a", "b", "/", "*", "?", "**/", "/**/", "/**", "**\\/"};
  std::minstd_rand random(1);  // NOLINT: the same each time
  for (int round = 0; round < 50'000; ++round) {
    std::string pattern;
    for (std::size_t count = 1 + random() % 8; count > 0; --count) {
      pattern += pieces[random() % pieces.size()];
    }
    internal::GlobProgress progress;
    for (std::string path = "b"; path.size() < 18; path += random() % 2 == 0 ? "/a" : "/b") {
      if (random() % 4 == 0) continue;  // not every level is asked about
      ASSERT_EQ(internal::glob_matches_further(pattern, path, progress),
                internal::glob_matches(pattern, internal::GlobKind::path, path))
          << pattern << ' ' << path;
    }
  }
}

}  // namespace path_filter

// Rule sets of many patterns, and patterns made to explode.

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/git_ignore.h"

namespace path_filter {

/// Found in an index or tried one by one, the last rule that matches decides. (Which those
/// are is held against git by fuzz/git_differential.cpp.)
TEST(GitGlob, RandomRuleSetsSayWhatTheirLinesSay) {
  std::istringstream words(R"(a b a b ab aab / / * * ? ** /**/ **/ /** [ab] [ab] [!a] [b-z] \a
                               [[:alpha:]] [a- \ [aA][bB] [[:space:][:cntrl:]a] \/)");
  std::vector<std::string> pieces{""};  // stands for a literal around the longest that is filed
  for (std::string piece; words >> piece;) pieces.push_back(piece);
  std::mt19937 random(20240611);
  const auto below = [&](std::size_t end) { return random() % end; };
  for (int round = 0; round < 600; ++round) {
    // From a few rules, which are tried one by one, to some that are found in an index.
    std::vector<std::string> rules(1 + below(round % 3 == 0 ? 10 : 60));
    for (std::string& rule : rules) {
      rule = below(3) == 0 ? "!" : "";
      for (std::size_t count = 1 + below(round % 2 == 0 ? 4 : 12); count > 0; --count) {
        const std::string& piece = pieces[below(pieces.size())];
        rule += piece.empty() ? std::string(58 + below(10), 'a') : piece;
      }
    }
    const std::vector<std::string_view> lines(rules.begin(), rules.end());
    const auto spec = GitIgnoreSpec::from_lines(lines);
    for (int question = 0; question < 20; ++question) {
      std::string path;
      for (std::size_t count = 1 + below(8); count > 0; --count) {
        path.append(below(12) == 0 ? 58 + below(10) : 1 + below(2), 'a');
        path += "//ab"[below(4)];
      }
      std::optional<bool> expected;
      for (const std::string_view& line : lines) {
        const auto alone = GitIgnoreSpec::from_lines({&line, 1}).check_file(path).include;
        if (alone) expected = alone;
      }
      ASSERT_EQ(spec.check_file(path).include, expected)
          << path << ", round " << round << ": " << testing::PrintToString(rules);
    }
  }
}

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
}

}  // namespace path_filter

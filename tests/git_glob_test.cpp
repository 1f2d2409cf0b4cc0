// The patterns of ignore files: against the slow matcher, and made to explode.

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "fuzz/manual_matcher.h"
#include "utils/path_filter/git_ignore.h"

namespace path_filter {

static std::vector<std::string> all_texts(std::string_view alphabet, std::size_t longest) {
  std::vector<std::string> all{""};
  for (std::size_t at = 0; all[at].size() < longest; ++at) {
    for (const char character : alphabet) all.push_back(all[at] + character);
  }
  return {all.begin() + 1, all.end()};
}

static bool as_the_manual_says(std::string_view pattern, std::string_view path) {
  return path.starts_with('/') || path.find("//") != path.npos ||
         GitIgnoreSpec::from_lines({&pattern, 1}).check_file(path).include ==
             manual::line_says(pattern, path);
}

TEST(GitGlob, AllShortPatternsAndClassesMatchAsTheManualSays) {
  using Row = std::tuple<const char*, std::size_t, const char*, std::size_t>;
  for (const auto& [alphabet, longest_pattern, path_alphabet, longest_path] :
       {Row{"ab/*?[]!\\-", 4, "ab/", 4},    // everything, in short
        Row{"a/*", 8, "a/", 7},             // "**" in every position
        Row{"a/*\\", 6, "ab/", 5},          // and next to escapes
        Row{"ac[]-!\\", 6, "abc]-!\\", 1},  // bracket expressions
        Row{"[:a]", 8, "a:", 1},            // and what looks like a class
        Row{"a!# \\/", 5, "a!# \\", 2}}) {  // marks, blanks and escapes
    const auto paths = all_texts(path_alphabet, longest_path);
    for (const std::string& pattern : all_texts(alphabet, longest_pattern))
      for (const std::string& path : paths)
        ASSERT_TRUE(as_the_manual_says(pattern, path)) << pattern << " on " << path;
  }
  for (const std::string name : {"alnum", "alpha", "blank", "cntrl", "digit", "graph", "lower",
                                 "print", "punct", "space", "upper", "xdigit", "bogus"})
    for (int byte = 1; byte < 256; ++byte)
      EXPECT_TRUE(as_the_manual_says("[[:" + name + ":]]", std::string(1, char(byte)))) << byte;
}

TEST(GitGlob, RandomRuleSetsSayWhatTheirLinesSay) {
  std::istringstream words(
      R"(* / ? **/ /** a b a b ab / ** /**/ [ab] [!a] [b-z] \a [[:alpha:]] [a- \ [aA][b] [A-a-c] \/)");
  const std::vector<std::string> pieces{std::istream_iterator<std::string>(words), {}};
  std::mt19937 random(20240611);
  const auto below = [&](std::size_t end) { return random() % end; };
  for (int round = 0; round < 600; ++round) {
    const std::size_t long_part = round % 4 == 1 ? 2 : 12;  // around the longest that is filed
    // From a few rules, which are tried one by one, to some that are found in an index.
    std::vector<std::string> rules(1 + below(round % 3 == 0 ? 10 : 60));
    for (std::string& rule : rules) {
      rule = below(3) == 0 ? "!" : "";
      for (std::size_t count = 1 + below(round % 2 == 0 ? 4 : 12); count > 0; --count) {
        const std::string& piece = pieces[below(round % 4 == 1 ? 5 : pieces.size())];
        rule += below(long_part) == 0 ? std::string(58 + below(10), 'a') : piece;
      }
    }
    const std::vector<std::string_view> lines(rules.begin(), rules.end());
    const auto spec = GitIgnoreSpec::from_lines(lines);
    for (int question = 0; question < 20; ++question) {
      std::string path;
      for (std::size_t count = 1 + below(8); count > 0; --count)
        path.append(below(long_part) == 0 ? 58 + below(10) : 1 + below(2), 'a') += "//ab"[below(4)];
      ASSERT_EQ(spec.check_file(path).include, manual::lines_say(lines, path))
          << path << ", round " << round << ": " << testing::PrintToString(rules);
    }
  }
}

/// Matched in every way, or built in the square of their text, these would take hours to ages.
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
        Row{"", "\\ "}, Row{"", " \\"}, Row{"", "**/"}}) {
    std::vector<std::string_view> lines(20, "x");  // enough for an index
    std::string line(front);
    for (int count = path.empty() ? 4'000'000 : 2000; count > 0; --count) line += piece;
    lines.push_back(line += back);
    const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
    EXPECT_FALSE(rules.check_file(path.empty() ? "a/b" : path).include) << line.substr(0, 12);
  }
}

}  // namespace path_filter

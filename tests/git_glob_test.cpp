// The patterns of ignore files: rule sets against the slow matcher, and patterns and lines made
// to explode.

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/manual_matcher.h"
#include "utils/path_filter/git_ignore.h"

namespace path_filter {
namespace {

/// All texts over `alphabet` of 1 to `longest` characters, the shortest first.
std::vector<std::string> all_texts(std::string_view alphabet, std::size_t longest) {
  std::vector<std::string> all{""};
  for (std::size_t at = 0; all[at].size() < longest; ++at) {
    for (const char character : alphabet) all.push_back(all[at] + character);
  }
  all.erase(all.begin());
  return all;
}

TEST(GitGlob, AllShortPatternsMatchAsTheManualSays) {
  struct Row {
    std::string_view pattern_alphabet;
    std::size_t longest_pattern;
    std::string_view path_alphabet;
    std::size_t longest_path;
  };
  for (const auto& [pattern_alphabet, longest_pattern, path_alphabet, longest_path] :
       {Row{"ab/*?[]!\\-", 4, "ab/", 4},    // everything, in short
        Row{"a/*", 8, "a/", 7},             // "**" in every position
        Row{"a/*\\", 6, "ab/", 5},          // and next to escapes
        Row{"ac[]-!\\", 6, "abc]-!\\", 1},  // bracket expressions
        Row{"[:a]", 8, "a:", 1},            // and what looks like a class
        Row{"a!# \\/", 5, "a!# \\", 2}}) {  // marks, blanks and escapes
    auto paths = all_texts(path_alphabet, longest_path);
    std::erase_if(paths, [](const std::string& path) {
      return path.starts_with('/') || path.find("//") != std::string::npos;
    });
    for (const std::string& pattern : all_texts(pattern_alphabet, longest_pattern)) {
      const std::array<std::string_view, 1> line{pattern};
      const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(line);
      for (const std::string& path : paths) {
        ASSERT_EQ(rules.check_file(path).include, manual::line_says(pattern, path))
            << pattern << " on " << path;
      }
    }
  }
}

TEST(GitGlob, RandomRuleSetsSayWhatTheirLinesSay) {
  static constexpr std::string_view LONG;  // stands for a literal around the longest filed one
  static constexpr std::string_view PIECES[] = {
      "a",    "b",    "a",        "b",    "ab",
      "aab",  "/",    "/",        "*",    "*",
      "?",    "**",   "/**/",     "**/",  "/**",
      "[ab]", "[!a]", "[b-z]",    "\\a",  "[[:alpha:]]",
      "[a-",  "\\",   "[aA][bB]", "[ab]", "[[:space:][:cntrl:]a]",
      "\\/",  LONG};
  std::mt19937 random(20240611);
  const auto below = [&](std::size_t end) { return random() % end; };
  for (int round = 0; round < 600; ++round) {
    // From a few rules, which are tried one by one, to some that are found in an index.
    std::vector<std::string> rules(1 + below(round % 3 == 0 ? 10 : 60));
    for (std::string& rule : rules) {
      rule = below(3) == 0 ? "!" : "";
      for (std::size_t count = 1 + below(round % 2 == 0 ? 4 : 12); count > 0; --count) {
        const std::string_view piece = PIECES[below(std::size(PIECES))];
        rule += piece.empty() ? std::string(58 + below(10), 'a') : std::string(piece);
      }
    }
    const std::vector<std::string_view> lines(rules.begin(), rules.end());
    const GitIgnoreSpec spec = GitIgnoreSpec::from_lines(lines);
    for (int question = 0; question < 20; ++question) {
      std::string path;
      for (std::size_t count = 1 + below(8); count > 0; --count) {
        path.append(below(12) == 0 ? 58 + below(10) : 1 + below(2), 'a');
        path += "//ab"[below(4)];
      }
      ASSERT_EQ(spec.check_file(path).include, manual::lines_say(lines, path))
          << "round " << round << ", path " << path << ", rules:\n"
          << testing::PrintToString(rules);
    }
  }
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string made;
  for (; count > 0; --count) made += text;
  return made;
}

/// Tried in every way, the first would take longer than the universe lasts. With the square of
/// its text, each of the last would take from a quarter of an hour to days to build.
TEST(GitGlob, HostilePatternsEnd) {
  constexpr std::size_t N = 2000;
  constexpr std::size_t M = std::size_t{1} << 20;
  const std::string as = repeated("a", N * 2);
  const std::string below_as = repeated("a/", N * 2) + "b";
  const std::array<std::string, 2> rows[] = {
      {repeated("*a", N) + "*c*b", as + "b"},
      {repeated("*[!b]", N) + "*[!a]*", as},
      {repeated("*?", N * 2) + "?*", as},
      {repeated("**/a/", N) + "c/**/b", below_as},
      {repeated("**/", N) + "*/c/**", below_as},
      // These two take pattern times text steps, the most that a pattern can take.
      {"*" + repeated("a", N) + "[!a]*", as},
      {"**/" + repeated("a/", N) + "c/**", below_as},
      {repeated("**/*a*/", N) + "[!a]*/**", repeated("aaa/", N * 2) + "b"},
      {"**/" + repeated("*a", N) + "*c*/**", repeated(as + "/", 10) + "b"},
      // Every "[:" may be a class, whose end is looked for.
      {"[" + repeated("[:", (MAX_IGNORE_FILE_BYTES - 4) / 2) + "x]", "a/b"},
      {repeated("[[:", M) + "]", "a/b"},
      {repeated("*[", M) + "]", "a/b"},
      {repeated("[!ab]", M) + "*", "a/b"},
      {repeated("\\ ", M), "a/b"},
      {repeated(" \\", M), "a/b"},
      {repeated("**/", M), "a/b"}};
  for (const auto& [pattern, path] : rows) {
    // Among others, so that it is put into an index.
    std::vector<std::string_view> lines(20, "x");
    lines.push_back(pattern);
    EXPECT_FALSE(GitIgnoreSpec::from_lines(lines).check_file(path).include)
        << pattern.substr(0, 12);
  }
}

}  // namespace
}  // namespace path_filter

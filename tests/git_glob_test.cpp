// The patterns of ignore files: rule sets against the slow matcher, on all short
// patterns and on random long ones, and patterns made to explode.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/manual_matcher.h"
#include "utils/path_filter/git_ignore.h"

namespace path_filter {
namespace {

/// All texts over `alphabet` of 1 to `longest` characters, the shortest first.
std::vector<std::string> texts(std::string_view alphabet, std::size_t longest) {
  std::vector<std::string> all{""};
  for (std::size_t at = 0; all[at].size() < longest; ++at) {
    for (const char character : alphabet) all.push_back(all[at] + character);
  }
  all.erase(all.begin());
  return all;
}

/// Those of them that can be asked: paths of non-empty components, some with a "/" at
/// the end.
std::vector<std::string> paths(std::string_view alphabet, std::size_t longest) {
  auto all = texts(alphabet, longest);
  std::erase_if(all, [](const std::string& path) {
    return path.starts_with('/') || path.find("//") != std::string::npos;
  });
  return all;
}

std::string said(std::optional<bool> include) {
  return !include ? "nothing" : *include ? "ignored" : "included again";
}

struct Exhaustive {
  std::string_view pattern_alphabet;
  std::size_t longest_pattern;
  std::string_view path_alphabet;
  std::size_t longest_path;
};

void PrintTo(const Exhaustive& row, std::ostream* out) {
  *out << "patterns of " << row.pattern_alphabet;
}

class AllShortPatterns : public testing::TestWithParam<Exhaustive> {};

TEST_P(AllShortPatterns, MatchAsTheManualSays) {
  const auto& [pattern_alphabet, longest_pattern, path_alphabet, longest_path] = GetParam();
  const auto asked = paths(path_alphabet, longest_path);
  for (const std::string& pattern : texts(pattern_alphabet, longest_pattern)) {
    const std::array<std::string_view, 1> line{pattern};
    const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(line);
    for (const std::string& path : asked) {
      const auto expected = manual::line_says(pattern, path);
      const auto actual = rules.check_file(path).include;
      ASSERT_EQ(actual, expected) << "pattern \"" << pattern << "\", path \"" << path
                                  << "\": " << said(actual) << ", not " << said(expected);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    GitGlob, AllShortPatterns,
    testing::Values(Exhaustive{"ab/*?[]!\\-", 4, "ab/", 4},    // everything, in short
                    Exhaustive{"a/*", 8, "a/", 7},             // "**" in every position
                    Exhaustive{"a/*\\", 6, "ab/", 5},          // and next to escapes
                    Exhaustive{"ac[]-!\\", 6, "abc]-!\\", 1},  // bracket expressions
                    Exhaustive{"[:a]", 8, "a:", 1},            // and what looks like a class
                    Exhaustive{"a!# \\/", 5, "a!# \\", 2}));   // marks, blanks and escapes

/// Texts put together from pieces of patterns.
class Random {
 public:
  explicit Random(unsigned seed) : _random(seed) {}

  std::size_t below(std::size_t end) { return _random() % end; }

  std::string pattern() {
    static constexpr std::string_view PIECES[] = {
        "a",    "b",     "a",   "b",           "ab",   "aab", "/",        "/",
        "*",    "*",     "?",   "**",          "/**/", "**/", "/**",      "[ab]",
        "[!a]", "[b-z]", "\\a", "[[:alpha:]]", "[a-",  "\\",  "[aA][bB]", std::string_view()};
    std::string made(below(3) == 0 ? "!" : "");
    for (std::size_t count = 1 + below(12); count > 0; --count) {
      const std::string_view piece = PIECES[below(std::size(PIECES))];
      made += piece.empty() ? std::string(55 + below(15), 'a') : std::string(piece);
    }
    return made;
  }

  std::string path() {
    std::string made;
    for (std::size_t count = 1 + below(8); count > 0; --count) {
      const std::size_t kind = below(12);
      made += kind == 0 ? std::string(55 + below(15), 'a') : std::string(1 + kind / 6, 'a');
      made += below(2) == 0 ? "/" : below(2) == 0 ? "b" : "a";
    }
    return made;
  }

 private:
  std::mt19937 _random;
};

TEST(GitGlobTest, RandomRuleSetsSayWhatTheirLinesSay) {
  Random random(20240611);
  for (int round = 0; round < 400; ++round) {
    std::vector<std::string> texts(1 + random.below(40));
    for (std::string& text : texts) text = random.pattern();
    const std::vector<std::string_view> lines(texts.begin(), texts.end());
    const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
    for (int question = 0; question < 20; ++question) {
      const std::string path = random.path();
      ASSERT_EQ(rules.check_file(path).include, manual::lines_say(lines, path))
          << "round " << round << ", path " << path << ", rules:\n"
          << testing::PrintToString(texts);
    }
  }
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string made;
  for (; count > 0; --count) made += text;
  return made;
}

struct Explosive {
  std::string pattern;
  std::string path;
};

/// Tried in every way, each of these would take longer than the universe lasts. Their
/// literal ends fit the path or are missing, so that the wildcards are what is tried.
TEST(GitGlobTest, ExplosivePatternsEnd) {
  constexpr std::size_t SIZE = 2000;
  const std::string as = repeated("a", SIZE * 2);
  const std::string directories = repeated("a/", SIZE * 2);
  const Explosive rows[] = {
      {repeated("*a", SIZE) + "*c*b", as + "b"},
      {repeated("*[!b]", SIZE) + "*[!a]*", as},
      {repeated("*?", SIZE * 2) + "?*", as},
      {repeated("*", SIZE) + repeated("a*", SIZE) + "[!a]?*", as},
      {repeated("**/a/", SIZE) + "c/**/b", directories + "b"},
      {repeated("**/", SIZE) + "*/c/**", directories + "b"},
      // These two take pattern times text steps, the most that a pattern can take.
      {"*" + repeated("a", SIZE) + "[!a]*", as},
      {"**/" + repeated("a/", SIZE) + "c/**", directories + "b"},
      {repeated("**/*a*/", SIZE) + "[!a]*/**", repeated("aaa/", SIZE * 2) + "b"},
      {repeated("a/**/", SIZE) + "c*/b", directories + "b"},
      {"**/" + repeated("*a", SIZE) + "*c*/**", repeated(as + "/", 10) + "b"},
  };
  for (const Explosive& row : rows) {
    const std::array<std::string_view, 1> line{row.pattern};
    const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(line);
    EXPECT_EQ(said(rules.check_file(row.path).include), "nothing") << row.pattern.substr(0, 12);
  }
}

/// A rule set is built in a time that grows with its text. With the square of it, each
/// of these would take from a quarter of an hour to days.
TEST(GitGlobTest, HostileLinesAreTakenInLinearTime) {
  constexpr std::size_t SIZE = std::size_t{1} << 20;
  const std::string rows[] = {
      // Every "[:" may be a class, whose end is looked for.
      "[" + repeated("[:", (MAX_IGNORE_FILE_BYTES - 4) / 2) + "x]",
      repeated("[[:", SIZE) + "]",
      repeated("[", SIZE),
      repeated("*[", SIZE) + "]",
      repeated("[!ab]", SIZE) + "*",
      repeated("\\ ", SIZE),
      repeated(" \\", SIZE),
      repeated("**/", SIZE),
  };
  for (const std::string& row : rows) {
    const std::array<std::string_view, 1> line{row};
    EXPECT_FALSE(GitIgnoreSpec::from_lines(line).check_file("a/b").include) << row.substr(0, 12);
  }
}

}  // namespace
}  // namespace path_filter

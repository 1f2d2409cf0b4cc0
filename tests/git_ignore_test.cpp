#include "utils/path_filter/git_ignore.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support.h"

namespace path_filter {
namespace {

using internal::LastLink;

GitIgnoreSpec rules_of(std::string_view lines) {
  std::vector<std::string_view> split;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    split.push_back(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return GitIgnoreSpec::from_lines(split);
}

/// "i": ignored, "n": included again, "-": no match.
std::string check(std::string_view lines, std::string_view path) {
  const auto include = rules_of(lines).check_file(path).include;
  return !include ? "-" : *include ? "i" : "n";
}

// The whole format is compared with git itself by the differential test; these rows are
// the format's corner stones and what that test has found.
TEST(GitIgnore, Rules) {
  struct Row {
    std::string_view lines;
    std::string_view path;
    std::string_view verdict;
  };
  const Row rows[] = {
      {"*.log", "a/b.log", "i"},
      {"*.log\n!b.log", "a/b.log", "n"},
      {"!b.log\n*.log", "a/b.log", "i"},
      {"build/", "a/build/", "i"},
      {"build/", "build", "-"},
      {"build/\nbuild", "build", "i"},
      {"build\n!build/", "build/", "n"},
      {"/a.txt", "a.txt", "i"},
      {"/a.txt", "b/a.txt", "-"},
      {"b/a.txt", "c/b/a.txt", "-"},
      {"**/b/a.txt", "c/b/a.txt", "i"},
      {"**/a.txt", "c/b/a.txt", "i"},
      {"**/a.txt", "a.txt", "i"},
      {"a/**", "a/b/c", "i"},
      {"a/**", "a/", "-"},
      {"/**", "a", "i"},
      {"a/**/b", "a/b", "i"},
      {"a/**/b", "a/x/y/b", "i"},
      {"a/**/b", "a/xb", "-"},
      {"a/**\\/b", "a/b", "-"},
      {"a/**\\/b", "a/x/y/b", "i"},
      {"a/*/c", "a/b/c", "i"},
      {"a/*/c", "a/b/d/c", "-"},
      {"a/b*c", "a/b/c", "-"},
      {"a?c", "a/c", "-"},
      {"a[/]c", "a/c", "-"},
      {"a[x/]c/d", "axc/d", "i"},
      {"*", "anything/at/all", "i"},
      {"# comment", "# comment", "-"},
      {"\\# name", "# name", "i"},
      {"\\!name", "!name", "i"},
      {"name  ", "name", "i"},
      {"name\\ ", "name ", "i"},
      {"name\t", "name", "-"},
      {"name\\", "name", "-"},
      {"name\\", "name\\", "-"},
      {"[a-c]x\n", "bx", "i"},
      {"[^a-c]x\n", "bx", "-"},
      {"[]-]x", "-x", "i"},
      {"[[:digit:]]x", "7x", "i"},
      {"[[:bogus:]]x", "7x", "-"},
      {"[a", "[a", "-"},
      {"[Dd]ebug/", "x/debug/", "i"},
      {"*.py[cod]", "x.pyd", "i"},
      {"*.py[cod]", "x.pyx", "-"},
      {"[a-z][a-z][a-z].x", "abc.x", "i"},
      {"!", "!", "-"},
      {"/", "a", "-"},
      {"//a", "a", "-"},
      {"**//a", "x/a", "-"},
      {"name\xC3\xA9?", "name\xC3\xA9x", "i"},
      {"na?me", "na\xC3\xA9me", "-"},
      {"*\xFF", "x\xFF", "i"},
      {std::string_view("a\0b", 3), "a", "i"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(check(row.lines, row.path), row.verdict) << row.lines << " on " << row.path;
  }
}

TEST(GitIgnore, LiteralsOfEveryLength) {
  // Around the longest literal that the index files whole.
  for (const std::size_t size : {1U, 62U, 63U, 64U, 65U, 200U}) {
    const std::string literal(size, 'x');
    for (const std::string& pattern : {literal, literal + "*", "*" + literal, "/" + literal,
                                       "a/*" + literal, literal + "/**", "*" + literal + "?"}) {
      const GitIgnoreSpec spec = rules_of(pattern);
      const auto matches = [&](const std::string& path) {
        return spec.check_file(path).include.has_value();
      };
      const bool tail = pattern.starts_with('*') && !pattern.ends_with('?');
      EXPECT_EQ(matches("y" + literal), tail) << pattern;
      EXPECT_EQ(matches(literal + "y"), pattern == literal + "*" || pattern.ends_with('?'))
          << pattern;
      EXPECT_EQ(matches("a/" + literal),
                !pattern.starts_with('/') && !pattern.ends_with("/**") && !pattern.ends_with('?'))
          << pattern;
      EXPECT_EQ(matches(literal + "/b"), pattern.ends_with("/**")) << pattern;
    }
  }
}

TEST(GitIgnore, Patterns) {
  const GitIgnoreSpec spec = rules_of("# c\n\n  \n!a/ \nb\\ \n");
  const auto patterns = spec.patterns();
  ASSERT_EQ(patterns.size(), 2U);
  EXPECT_EQ(patterns[0].text, "!a/");
  EXPECT_EQ(patterns[0].line, 4U);
  EXPECT_FALSE(patterns[0].include);
  EXPECT_EQ(patterns[1].text, "b\\ ");
  EXPECT_TRUE(patterns[1].include);
}

TEST(GitIgnore, ReadingAFile) {
  const TempTree tree;
  const auto check_content = [&](std::string_view content, std::string_view path) {
    tree.write("ignore", content);
    const auto rules = _read_ignore_rules(tree / "ignore");
    return rules && rules->check_file(path).include == true;
  };
  EXPECT_FALSE(check_content("", "a"));
  EXPECT_FALSE(_read_ignore_rules(tree / "ignore"));
  EXPECT_FALSE(check_content("# only\n\n   \n", "a"));
  EXPECT_FALSE(_read_ignore_rules(tree / "ignore"));
  for (const std::string_view end : {"\n", "\r\n", "\r", "\v", "\f", "\x1C", "\x1D", "\x1E",
                                     "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    const std::string content = "a" + std::string(end) + "b";
    EXPECT_TRUE(check_content(content, "a") && check_content(content, "b")) << content;
  }
  EXPECT_FALSE(check_content("a\x1Fz\nb", "a"));
  EXPECT_TRUE(check_content("x\xFFy\nb", "b"));
  EXPECT_TRUE(check_content("x\xFFy\nb", "x\xEF\xBF\xBDy"));
  EXPECT_FALSE(
      check_content("\xEF\xBB\xBF"
                    "a\nb",
                    "a"));
  EXPECT_TRUE(
      check_content("\xEF\xBB\xBF"
                    "a\nb",
                    "\xEF\xBB\xBF"
                    "a"));
}

TEST(GitIgnore, WhatCannotBeRead) {
  const TempTree tree;
  tree.write("file", "a");
  tree.make_directory("directory");
  tree.link("nowhere", "gone");
  tree.link("link", "file");
  ASSERT_EQ(::mkfifo((tree / "fifo").c_str(), 0600), 0);
  tree.write("large");
  std::filesystem::resize_file(tree / "large", MAX_IGNORE_FILE_BYTES + 1);

  struct Row {
    const char* path;
    LastLink last_link;
    const char* problem;  // "" when nothing is logged
  };
  for (const Row& row :
       {Row{"missing", LastLink::follow, ""}, Row{"file/.gitignore", LastLink::follow, ""},
        Row{"nowhere", LastLink::follow, ""}, Row{"directory", LastLink::follow, "Is a directory"},
        Row{"fifo", LastLink::follow, "Not a regular file"},
        Row{"large", LastLink::follow, "File too large"},
        Row{"link", LastLink::refuse, "Too many levels of symbolic links"}}) {
    const CapturedLog log;
    const std::string path = (tree / row.path).string();
    EXPECT_FALSE(_read_ignore_rules(path, row.last_link)) << path;
    EXPECT_EQ(log.text(), *row.problem == '\0'
                              ? ""
                              : "utils.path_filter warning Cannot read the ignore rules in " +
                                    path + ": " + row.problem + "\n");
  }
  const CapturedLog log;
  EXPECT_TRUE(_read_ignore_rules(tree / "link"));
  EXPECT_FALSE(_read_ignore_rules("/dev/null"));
  EXPECT_EQ(log.text(), "");
}

TEST(GitIgnore, GitDirectory) {
  const TempTree tree;
  const auto git_dir = [&](std::string_view content) {
    tree.write(".git", content);
    const auto found = _git_dir(tree.root());
    return found ? found->string() : "absent";
  };
  const std::string root = tree.root().string();
  EXPECT_FALSE(_git_dir(tree.root()));
  EXPECT_EQ(git_dir(" \n gitdir: \t/else/where \r\n"), "/else/where");
  EXPECT_EQ(git_dir("gitdir: ../a/.git/modules/b"), root + "/../a/.git/modules/b");
  EXPECT_EQ(git_dir("gitdir:a\nb"), root + "/a\nb");
  EXPECT_EQ(git_dir("gitdir:\n"), root);
  EXPECT_EQ(git_dir("GITDIR: a"), "absent");
  EXPECT_EQ(git_dir(""), "absent");
  EXPECT_EQ(git_dir(std::string(2 << 20, 'x')), "absent");
  EXPECT_THROW(git_dir("gitdir: \xFF"), std::system_error);
  std::filesystem::remove(tree / ".git");
  ASSERT_EQ(::mkfifo((tree / ".git").c_str(), 0600), 0);
  EXPECT_FALSE(_git_dir(tree.root()));
  std::filesystem::remove(tree / ".git");
  tree.make_directory("real");
  tree.link(".git", "real");
  EXPECT_EQ(_git_dir(tree.root())->string(), root + "/.git");
}

TEST(GitIgnore, CommonDirectory) {
  const TempTree tree;
  const std::string root = tree.root().string();
  EXPECT_EQ(_common_dir(tree.root()).string(), root);
  tree.write("commondir", " ../..\n");
  EXPECT_EQ(_common_dir(tree.root()).string(), root + "/../..");
  tree.write("commondir", "/common");
  EXPECT_EQ(_common_dir(tree.root()).string(), "/common");
  tree.write("commondir", " \n");
  EXPECT_EQ(_common_dir(tree.root()).string(), root);
  tree.write("commondir", "\xC3");
  EXPECT_THROW(_common_dir(tree.root()), std::system_error);
}

}  // namespace
}  // namespace path_filter

// Where the component's answer is not git's, on purpose: the table of
// docs/git-differences.md, row by row, both sides asked. That they agree everywhere else
// is what fuzz/git_differential.cpp shows.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/git_oracle.h"
#include "tests/support.h"
#include "utils/path_filter/index_scope.h"

namespace path_filter {
namespace {

using namespace std::string_literals;
using git_oracle::Git;

class GitAgreementTest : public testing::Test {
 protected:
  const Git git;
  const std::filesystem::path root = git.work_tree(Git::Tree::plain);

  bool git_ignores(const std::string& path) {
    const auto rule = git.deciding_rules(Git::Tree::plain, {&path, 1}).front();
    return rule && !rule->pattern.starts_with('!');
  }

  bool component_ignores(const std::string& path) {
    const auto rule = IndexScope(root).deciding_ignore_rule(path);
    return rule && !rule->pattern.starts_with('!');
  }

  void write_rules(std::string_view rules) {
    std::ofstream(root / ".gitignore", std::ios::binary) << rules;
  }

  /// The row of the table: git ignores one of two paths, and the component the other.
  /// An absent one ("") is one that neither side has.
  void expect_difference(const std::string& rules, const std::string& only_git,
                         const std::string& only_component) {
    SCOPED_TRACE("rules " + testing::PrintToString(rules));
    write_rules(rules);
    if (!only_git.empty()) {
      EXPECT_TRUE(git_ignores(only_git)) << only_git;
      EXPECT_FALSE(component_ignores(only_git)) << only_git;
    }
    if (!only_component.empty()) {
      EXPECT_FALSE(git_ignores(only_component)) << only_component;
      EXPECT_TRUE(component_ignores(only_component)) << only_component;
    }
  }
};

/// No difference: too many bytes and classes for random names to meet them all.
TEST_F(GitAgreementTest, ClassesHoldTheSameBytes) {
  std::vector<std::string> names;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/' && byte != '\\') names.push_back({'x', static_cast<char>(byte)});
  }
  for (const char* name : {"alnum", "alpha", "blank", "cntrl", "digit", "graph", "lower", "print",
                           "punct", "space", "upper", "xdigit", "ascii", "word", "Alpha", ""}) {
    write_rules("x[[:"s + name + ":]]\n");
    const auto expected = git.deciding_rules(Git::Tree::plain, names);
    for (std::size_t index = 0; index < names.size(); ++index) {
      EXPECT_EQ(component_ignores(names[index]), expected[index].has_value())
          << name << ", " << testing::PrintToString(names[index]);
    }
  }
}

TEST_F(GitAgreementTest, AsterisksBehindALiteralBeginningAreRegular) {
  expect_difference("foo**/bar\n", "foo/x/bar", "");
  expect_difference("/foo**/bar\n", "foobar", "");
  expect_difference("a/b**\n!a/b*\n", "a/b/c", "");
  expect_difference("*\n!a/\n!a/foo**\n", "", "a/foo/b");
}

TEST_F(GitAgreementTest, AByteOrderMarkIsPartOfTheFirstLine) {
  expect_difference("\uFEFFa\n", "a", "\uFEFFa");
}

TEST_F(GitAgreementTest, UnicodesLineEndsEndALine) {
  for (const char* end : {"\r", "\v", "\f", "\x1C", "\x1D", "\x1E", "\u0085", "\u2028", "\u2029"}) {
    expect_difference("a"s + end + "b\n", "a"s + end + "b", "a");
  }
}

TEST_F(GitAgreementTest, InvalidBytesOfARuleAreReplacementCharacters) {
  expect_difference("\xFF\n", "\xFF", "\uFFFD");
}

TEST_F(GitAgreementTest, ABackslashInANameIsASeparator) {
  expect_difference("a\\\\b\n", "a\\b", "");
  expect_difference("/b\n!a/b\n/a/b\n", "", "a\\b");
}

TEST_F(GitAgreementTest, LinksAreDirectoriesToThoseWhoAskAboutADirectory) {
  std::filesystem::create_directory_symlink(".git", root / "link");
  expect_difference("link/\n", "", "link/");
}

TEST_F(GitAgreementTest, LetterCaseAlwaysCounts) {
  Git::run(root, "config core.ignorecase true");
  expect_difference("ABC\n", "abc", "");
}

TEST_F(GitAgreementTest, LargeIgnoreFilesAreRefused) {
  const CapturedLog log;
  expect_difference("a\n" + std::string(MAX_IGNORE_FILE_BYTES, '\n'), "a", "");
  EXPECT_NE(log.text().find("File too large"), std::string::npos) << log.text();
}

/// git calls these work trees broken; the component reads what they point to.
TEST_F(GitAgreementTest, PointerFilesMayHaveBlanksAndAnyGitDirectoryIsOne) {
  struct Row {
    std::string_view pointer;
    std::string_view directory;
  };
  constexpr Row rows[] = {{"gitdir:../elsewhere", "elsewhere"},
                          {"\n gitdir: \t../elsewhere \r\n", "elsewhere"},
                          {"", "work/.git"}};
  for (const Row& row : rows) {
    const TempTree tree;
    tree.make_directory("work");
    tree.write(std::string(row.directory) + "/info/exclude", "a\n");
    if (!row.pointer.empty()) tree.write("work/.git", row.pointer);
    EXPECT_THROW(Git::run(tree / "work", "rev-parse --git-dir >out 2>err"), std::runtime_error);
    EXPECT_TRUE(IndexScope(tree / "work").is_ignored("a")) << row.pointer;
  }
}

}  // namespace
}  // namespace path_filter

#include <gtest/gtest.h>

#include <array>

#include "tests/support.h"
#include "utils/path_filter/git_ignore/ignore_files.h"

namespace path_filter {

using Row = std::array<std::string, 3>;

TEST(GitIgnore, LinesOfAFile) {
  for (const char* end : {"\n", "\r\n", "\r", "\v", "\f", "\x1C", "\x1D", "\x1E", "\xC2\x85",
                          "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    const std::string content("\n\uFEFFx\n# c\n\n  \n!a\x1F/ \nb\xE2\x80");
    const auto rules = GitIgnoreSpec::from_content(content + end + "\\  ");
    std::string seen;
    for (const auto& [text, line, include] : rules->patterns()) {
      seen.append(text).append(include ? " + " : " - ").append(std::to_string(line)).append("\n");
    }
    EXPECT_EQ(seen, "\uFEFFx + 2\n!a\x1F/ - 6\nb\uFFFD + 7\n\\  + 8\n") << end;
  }
}

TEST(GitIgnore, WhatHoldsNoRulesOrCannotBeRead) {
  const TempTree tree;
  tree.write("file", "a");
  tree.write("none", "# only\n\n ");
  tree.write("large", std::string(MAX_IGNORE_FILE_BYTES + 1, 'x'));
  tree.link("link", "file");
  const bool fifos = test_system::make_fifo(tree / "fifo");
  EXPECT_TRUE(_read_ignore_rules(tree / "link"));
  // A file that has more than it says, as one that is being written.
  if (std::string version; std::getline(std::ifstream("/proc/version"), version)) {
    EXPECT_EQ(_read_ignore_rules("/proc/version").value().patterns()[0].text, version);
  }
  for (const auto& [path, problem, end] :
       {Row{"none"}, Row{"missing"}, Row{"file/x"}, Row{".", ": Is a directory", "\n"},
        fifos ? Row{"fifo", ": Not a regular file", "\n"} : Row{"missing"},
        Row{"large", ": File too large", "\n"},
        std::filesystem::is_symlink(tree / "link")  // not to Wine
            ? Row{"link", ": Too many levels of symbolic links", "\n"}
            : Row{"missing"}}) {
    const CapturedLog log;
    EXPECT_FALSE(_read_ignore_rules(tree / path, internal::Links::refuse));
    const std::string warning = "Cannot read the ignore rules in ";
    EXPECT_EQ(log.text(), end.empty() ? "" : warning + path_text(tree / path) + problem + end);
  }
}

TEST(GitIgnore, PointerFiles) {
  const TempTree tree;
  const std::string root = path_text(tree.root());
  EXPECT_FALSE(_git_dir(tree.root()));
  EXPECT_EQ(_common_dir(tree.root()), root);
  for (const auto& [content, git_dir, common_dir] :
       {Row{" \n gitdir: \t/else \r\n", "/else", root + "/gitdir: \t/else"},
        Row{"gitdir:../a\nb", root + "/../a\nb", root + "/gitdir:../a\nb"},
        Row{"/GITDIR: a", "", "/GITDIR: a"}, Row{"gitdir:\n", root, root + "/gitdir:"},
        Row{" \n", "", root}, Row{std::string(2 << 20, 'x'), "", root}}) {
    tree.write(".git", content);
    tree.write("commondir", content);
    EXPECT_EQ(_git_dir(tree.root()).value_or(""), git_dir);
    EXPECT_EQ(_common_dir(tree.root()), common_dir);
  }
  tree.write(".git", "gitdir: \xFF");
  EXPECT_THROW(_git_dir(tree.root()), std::system_error);
}

}  // namespace path_filter

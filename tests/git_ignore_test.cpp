#include "utils/path_filter/git_ignore.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cstdlib>

#include "tests/support.h"

namespace {

thread_local std::size_t live_bytes = 0;
thread_local std::size_t peak_bytes = 0;

}  // namespace

void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  peak_bytes = std::max(peak_bytes, live_bytes += malloc_usable_size(memory) + sizeof(size));
  return memory;
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) live_bytes -= malloc_usable_size(memory) + sizeof(std::size_t);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { ::operator delete(memory); }

namespace path_filter {
namespace {

using internal::LastLink;

TEST(GitIgnore, RuleSetsTakeFewTimesTheirText) {
  struct Row {
    std::string_view front, back;
    int letters;  // between the two, others on each line
  };
  for (const auto& [front, back, letters] :
       {Row{"?", "", 0}, Row{"*", "", 0}, Row{"", "", 1}, Row{"", "", 2}, Row{"", "", 3},
        Row{"", "", 8}, Row{"?", "", 2}, Row{"*.", "", 3}, Row{"[x]", "", 0}, Row{"[!x]", "", 1},
        Row{"[a-z]", "", 0}, Row{"*", "*", 1}, Row{"*", "*", 3}, Row{"a/", "", 2},
        Row{"", "\n?", 1}, Row{"", "\n\n\n", 3}, Row{"\\", "/**", 4}, Row{"?", "\n??", 0}}) {
    std::string content;
    for (int line = 0; content.size() < 1 << 20; ++line) {
      content += front;
      for (int letter = 0, left = line; letter < letters; ++letter, left /= 26) {
        content += static_cast<char>('a' + left % 26);
      }
      content.append(back).append("\n");
    }
    const std::size_t before = peak_bytes = live_bytes;
    ASSERT_TRUE(_ignore_rules_in(content));
    // With the content itself, 8 times.
    EXPECT_LE(peak_bytes - before, 7 * content.size()) << front << letters << back;
  }
  const std::size_t before = live_bytes;
  const auto rules = _ignore_rules_in("*.log\n/build/*/\n[Dd]ebug/\n!a\n");
  EXPECT_LE(live_bytes - before + sizeof(rules), 30U + 300U);
}

TEST(GitIgnore, Patterns) {
  const std::string_view lines[] = {"# c", "", "  ", "!a/ ", "b\\ "};
  const GitIgnoreSpec spec = GitIgnoreSpec::from_lines(lines);
  std::string seen;
  for (const auto& [text, line, include] : spec.patterns()) {
    seen.append(text).append(include ? " + " : " - ").append(std::to_string(line)).append("\n");
  }
  EXPECT_EQ(seen, "!a/ - 4\nb\\  + 5\n");
}

TEST(GitIgnore, ReadingAFile) {
  const TempTree tree;
  const auto ignores = [&](std::string_view content, std::string_view path) {
    tree.write("ignore", content);
    const auto rules = _read_ignore_rules(tree / "ignore");
    return rules && rules->check_file(path).include == true;
  };
  for (const std::string_view end : {"\n", "\r\n", "\r", "\v", "\f", "\x1C", "\x1D", "\x1E",
                                     "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    const std::string content = "a" + std::string(end) + "b";
    EXPECT_TRUE(ignores(content, "a") && ignores(content, "b")) << content;
    EXPECT_TRUE(ignores("\xE2\x80" + content,
                        "\xEF\xBF\xBD"
                        "a"))
        << content;
  }
  EXPECT_FALSE(ignores("a\x1Fz\nb", "a"));
  EXPECT_TRUE(ignores("x\xFFy\nb", "b") && ignores("x\xFFy\nb", "x\xEF\xBF\xBDy"));
  constexpr std::string_view MARKED =
      "\xEF\xBB\xBF"
      "a\nb";  // a byte-order mark
  EXPECT_TRUE(!ignores(MARKED, "a") && ignores(MARKED,
                                               "\xEF\xBB\xBF"
                                               "a"));
}

TEST(GitIgnore, WhatHoldsNoRulesOrCannotBeRead) {
  const TempTree tree;
  tree.write("file", "a");
  tree.write("empty");
  tree.write("comments", "# only\n\n   \n");
  tree.write("large");
  std::filesystem::resize_file(tree / "large", MAX_IGNORE_FILE_BYTES + 1);
  tree.link("nowhere", "gone");
  tree.link("link", "file");
  ASSERT_EQ(::mkfifo((tree / "fifo").c_str(), 0600), 0);
  EXPECT_TRUE(_read_ignore_rules(tree / "link"));
  const auto log_of = [&](const char* path, LastLink last_link) {
    const CapturedLog log;
    EXPECT_FALSE(_read_ignore_rules(tree / path, last_link)) << path;
    return log.text();
  };
  for (const char* path : {"empty", "comments", "missing", "file/.gitignore", "nowhere"}) {
    EXPECT_EQ(log_of(path, LastLink::follow), "");
  }
  using Row = std::pair<const char*, const char*>;
  for (const auto& [path, problem] :
       {Row{".", "Is a directory"}, Row{"fifo", "Not a regular file"},
        Row{"large", "File too large"}, Row{"link", "Too many levels of symbolic links"}}) {
    EXPECT_EQ(log_of(path, LastLink::refuse),
              "utils.path_filter warning Cannot read the ignore rules in " +
                  (tree / path).string() + ": " + problem + "\n");
  }
}

TEST(GitIgnore, PointerFiles) {
  const TempTree tree;
  const std::string root = tree.root().string();
  EXPECT_FALSE(_git_dir(tree.root()));
  EXPECT_EQ(_common_dir(tree.root()), root);
  struct Row {
    std::string content, git_dir, common_dir;
  };
  for (const auto& [content, git_dir, common_dir] :
       {Row{" \n gitdir: \t/else \r\n", "/else", root + "/gitdir: \t/else"},
        Row{"gitdir: ../a", root + "/../a", root + "/gitdir: ../a"},
        Row{"gitdir:a\nb", root + "/a\nb", root + "/gitdir:a\nb"},
        Row{"gitdir:\n", root, root + "/gitdir:"}, Row{"/GITDIR: a", "", "/GITDIR: a"},
        Row{" \n", "", root}, Row{std::string(2 << 20, 'x'), "", root}}) {
    tree.write(".git", content);
    tree.write("commondir", content);
    EXPECT_EQ(_git_dir(tree.root()).value_or("").string(), git_dir);
    EXPECT_EQ(_common_dir(tree.root()).string(), common_dir);
  }
  tree.write(".git", "gitdir: \xFF");
  EXPECT_THROW(_git_dir(tree.root()), std::system_error);
  std::filesystem::remove(tree / ".git");
  ASSERT_EQ(::mkfifo((tree / ".git").c_str(), 0600), 0);
  EXPECT_FALSE(_git_dir(tree.root()));
  std::filesystem::remove(tree / ".git");
  tree.link(".git", ".");
  EXPECT_EQ(_git_dir(tree.root())->string(), root + "/.git");
}

}  // namespace
}  // namespace path_filter

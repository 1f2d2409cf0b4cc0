#include "utils/path_filter/index_scope/index_scope.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/index_scope/tree_walk.h"

namespace path_filter {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

std::string kind_of(const Decision& decision) {
  return decision.kind() ? std::string(to_string(*decision.kind())) : "";
}

TEST(IndexScope, RulesInTheirOrder) {
  const TempTree tree;
  tree.write(".gitignore", "*.md\nsecret/\n*.min.js\nnode_modules\npackage-lock.json\n");
  const IndexScope scope(tree.root());
  using Texts = std::vector<std::string_view>;
  // The kind, "" when the files are in; their language; their paths.
  const std::tuple<const char*, const char*, Texts> rows[] = {
      {"", "python", {"src/app.py", "src\\app.py", "pkg/__init__.py", "a//b.py"}},
      {"", "python", {"docs/memory/codebase-index/x.py", "memory/codebase-indexes/x.py"}},
      {"", "typescript", {"memory/wiki/page.ts", "a.min.ts", ".github/workflows/a.ts"}},
      {"", "javascript", {"a.MIN.js"}},
      {"directory", "", {"a/node_modules/c/d/index.js", "./src/a.py", ".github/scripts/a.py"}},
      {"directory", "", {"build/memory/codebase-index/report.py"}},
      {"index_data", "", {"memory/codebase-index/build/a/report.py"}},
      {"unknown_language", "", {".env", "Cargo.lock", ""}},
      {"lockfile", "json", {"package-lock.json"}},
      {"minified", "javascript", {"a.min.js", "a.min.mjs", "a.min.cjs"}},
      {"gitignore", "markdown", {"README.md"}},
      {"gitignore", "python", {"secret/a.py"}}};
  for (const auto& [kind, language, paths] : rows) {
    for (const std::string_view path : paths) {
      const Decision decision = scope.is_indexable(path);
      EXPECT_EQ(kind_of(decision), kind) << path;
      EXPECT_EQ(decision.language().value_or(""), language) << path;
      EXPECT_EQ(decision.reason(), decision.kind() ? internal::reason_of(*decision.kind()) : "");
      EXPECT_EQ(decision.indexable(), !decision.kind());
    }
  }
  for (const std::string_view path : {"/etc/passwd", "C:\\work\\x.py", "\\\\host\\x.py"}) {
    EXPECT_THROW(scope.is_indexable(path), std::invalid_argument);
    EXPECT_THROW(scope.is_ignored(path), std::invalid_argument);
    EXPECT_THROW(scope.admits_directory(path), std::invalid_argument);
  }
}

TEST(IndexScope, Limits) {
  const IndexScope scope("/nowhere", {.limits = IndexLimits{10485760, LanguageSet{"python"}}});
  using Row = std::tuple<const char*, std::optional<std::int64_t>, const char*, const char*>;
  for (const auto& [path, size, kind, reason] :
       {Row{"a.py", std::nullopt, "", ""}, Row{"a.py", 10485760, "", ""}, Row{"a.json", 5, "", ""},
        Row{"a.py", 10485761, "size", "10.0 MB is over index.max_file_size_mb (10)"},
        Row{"a.ts", 12345678, "size", "11.8 MB is over index.max_file_size_mb (10)"},
        Row{"a.ts", 5, "language", "typescript is not in index.languages"}}) {
    const Decision decision = scope.is_indexable(path, {.size = size});
    EXPECT_EQ(kind_of(decision), kind) << path;
    EXPECT_EQ(decision.reason(), reason);
  }
  const auto reason = [](std::int64_t limit) {
    const IndexScope limited("/nowhere", {.limits = IndexLimits{limit, std::nullopt}});
    return limited.is_indexable("a.py", {.size = limit + 1}).reason();
  };
  EXPECT_EQ(reason(2621440), "2.5 MB is over index.max_file_size_mb (2.5)");
  EXPECT_EQ(reason(1234567LL << 20), "1234567.0 MB is over index.max_file_size_mb (1.23457e+06)");
}

TEST(IndexScope, Relative) {
  using Row = std::array<const char*, 3>;
  constexpr const char* ABSENT = "(absent)";
  for (const auto& [root, path, relative] :
       {Row{"/r", "/r/./src//a.py/", "src/a.py"}, Row{"/r/", "/r/a/", "a"}, Row{"/", "/a", "a"},
        Row{"/r", "/r", ABSENT}, Row{"/r", "/ra/b", ABSENT}, Row{"/r", "/r/a/../../etc", ABSENT},
        Row{"/r", "r/a", ABSENT}, Row{"/r", "//r/a", ABSENT}, Row{"r", "r/a", "a"},
        Row{".", "a/b", "a/b"}, Row{".", "/a/b", ABSENT}, Row{"/r", "", ABSENT},
        Row{"/r/..", "/r/../a", "a"}}) {
    EXPECT_EQ(IndexScope(root).relative(path).value_or(ABSENT), relative) << path << root;
  }
  const bool posix = test_system::NAMES_ARE_BYTES;
  for (const auto& [root, path, relative] :
       {Row{"/r", "/r/a\\b", posix ? "a\\b" : "a/b"}, Row{"C:\\R", "c:/r\\a/B", "a/B"},
        Row{"C:/r", "\\\\?\\C:\\r\\a", "a"}, Row{"\\\\?\\C:\\r\\É", "C:\\R\\é\\a", "a"},
        Row{"\\\\s\\h", "\\\\?\\UNC\\S\\h\\a", "a"}, Row{"C:/r", "D:/r/a", ABSENT},
        Row{".", "C:/a", ABSENT}, Row{"C:\\", "C:\\a", "a"}}) {
    if (posix && root[0] != '/') continue;  // a file's name there
    EXPECT_EQ(IndexScope(path_of(root)).relative(path).value_or(ABSENT), relative) << path << root;
  }
}

/// A repository with an ignore rule at every level that git has.
class Ignoring : public testing::Test {
 protected:
  Ignoring() {
    tree.write(".gitignore", "*.log\nbuild/\n!important.log\nlogs/\n!logs/keep.log\n");
    tree.write("sub/.gitignore", "!debug.log\n");
    tree.write("gen/.gitignore", "*\n");
    tree.write(".git/info/exclude", "local/\nextra.py\n");
    tree.write("global", "extra.py\n*.tmp*\n!app.log\n");
  }

  TempTree tree;
  int lookups = 0;
  IndexScope scope{tree.root(), {.excludes_file = [this](const std::filesystem::path& root) {
                     EXPECT_EQ(root, tree.root());
                     ++lookups;
                     return std::optional(tree / "global");
                   }}};
};

TEST_F(Ignoring, Verdicts) {
  // A path and the rule that decides, as "source:line:pattern".
  const std::pair<std::string, std::string> rows[] = {
      {"sub/debug.log", "sub/.gitignore:1:!debug.log"},
      {"sub/deep/trace.log", ".gitignore:1:*.log"},
      {"logs/keep.log", ".gitignore:4:logs/"},
      {"local/notes.txt", ".git/info/exclude:1:local/"},
      {"gen/.gitignore", "gen/.gitignore:1:*"},
      {"a.tmp", path_text(tree / "global") + ":2:*.tmp*"},
      {"gen/", ""},
      {"build//", ".gitignore:2:build/"},
      {"sub/build/", ".gitignore:2:build/"},
      {"a//app.log", ".gitignore:1:*.log"}};
  for (const auto& [path, expected] : rows) {
    const auto rule = scope.deciding_ignore_rule(path);
    EXPECT_EQ(rule ? rule->source + ":" + std::to_string(rule->line) + ":" + rule->pattern : "",
              expected)
        << path;
    EXPECT_EQ(scope.is_ignored(path), rule && !rule->pattern.starts_with('!')) << path;
  }
  for (const auto& [directory, admitted] : {std::pair{"gen"sv, true},
                                            {""sv, true},
                                            {"logs"sv, false},
                                            {"logs/"sv, false},
                                            {"sub\\local"sv, false},
                                            {"logs/deep/er"sv, false}}) {
    EXPECT_EQ(scope.admits_directory(directory), admitted) << directory;
  }
  EXPECT_EQ(lookups, 1);
}

TEST_F(Ignoring, ReadsOnceUntilRefreshAndOnlyWhatIsNeeded) {
  EXPECT_TRUE(scope.is_ignored("app.log"));
  EXPECT_EQ(lookups, 0);  // an ignore file had decided
  EXPECT_FALSE(scope.is_ignored("sub/a.py"));
  EXPECT_EQ(lookups, 1);
  tree.write("sub/.gitignore", "a.py\n");
  tree.write(".git/info/exclude", "b.py\n");
  EXPECT_FALSE(scope.is_ignored("sub/a.py"));
  EXPECT_FALSE(scope.is_ignored("b.py"));
  tree.write("new/.gitignore", "c.py\n");
  EXPECT_TRUE(scope.is_ignored("new/c.py"));  // nobody had asked about this directory
  scope.refresh();
  EXPECT_TRUE(scope.is_ignored("sub/a.py"));
  EXPECT_TRUE(scope.is_ignored("b.py"));
  EXPECT_EQ(lookups, 2);

  std::filesystem::remove_all(tree / ".git");
  scope.refresh();
  EXPECT_FALSE(scope.is_ignored("b.py"));  // no exclude file without a git directory
  EXPECT_EQ(lookups, 2);
}

TEST_F(Ignoring, FailuresPassThroughAndLeaveTheCachesWhole) {
  tree.write("bad/.git", "gitdir: \xFF");
  tree.write("bad/.gitignore", "*.log\n");
  const IndexScope bad(tree / "bad");
  EXPECT_THROW(bad.is_ignored("sub/a.py"), std::system_error);
  EXPECT_TRUE(bad.is_ignored("a.log"));
  tree.write("bad/.git", "");
  EXPECT_FALSE(bad.is_ignored("sub/a.py"));

  bool fail = true;
  const IndexScope failing(tree.root(), {.excludes_file = [&](const auto&) {
                             if (fail) throw std::runtime_error("lookup failed");
                             return std::optional<std::filesystem::path>();
                           }});
  EXPECT_THROW(failing.is_indexable("sub/a.py"), std::runtime_error);
  fail = false;
  EXPECT_TRUE(failing.is_indexable("sub/a.py"));
  test_registry::failing = true;
  EXPECT_THROW(failing.is_indexable("sub/__dunder__/a.py"), std::runtime_error);
  test_registry::failing = false;
  EXPECT_EQ(kind_of(failing.is_indexable("sub/__dunder__/a.py")), "directory");
}

TEST_F(Ignoring, CaseIsAskedAboutFirstAndAgainAfterRefresh) {
  std::string asked;
  int answer = 2;
  IndexScope folding(tree.root(), {.excludes_file =
                                       [&](const auto&) {
                                         asked += 'f';
                                         return std::optional(tree / "global");
                                       },
                                   .ignore_case =
                                       [&](const auto& root) {
                                         EXPECT_EQ(root, tree.root());
                                         asked += 'c';
                                         if (answer == 2) throw std::runtime_error("lookup failed");
                                         return answer == 1;
                                       }});
  EXPECT_THROW(folding.is_ignored("app.LOG"), std::runtime_error);
  answer = 1;
  EXPECT_TRUE(folding.is_ignored("app.LOG"));
  EXPECT_EQ(asked, "cc");  // an ignore file had decided
  EXPECT_FALSE(folding.is_ignored("sub/Debug.log"));
  EXPECT_TRUE(folding.is_ignored("LOCAL/a.py") && folding.is_ignored("A.TMP"));
  EXPECT_EQ(asked, "ccf");
  answer = 0;
  folding.refresh();
  std::filesystem::remove(tree / ".gitignore");
  EXPECT_FALSE(folding.is_ignored("A.TMP"));  // nothing but the exclude files has rules
  EXPECT_EQ(asked, "ccfcf");
  // The fixed rules know case all the same.
  const IndexScope always(tree.root(), {.ignore_case = true});
  EXPECT_TRUE(always.is_ignored("LOCAL/a.py") && always.admits_directory("Node_Modules"));
}

TEST_F(Ignoring, Explain) {
  const IndexScope limited(tree.root(), {.limits = IndexLimits{5, LanguageSet{"python"}}});
  EXPECT_EQ(limited.explain("a/build/b/build/c.py").directory, "a/build");
  EXPECT_EQ(limited.explain("memory/codebase-index/x/c.py").directory, "memory/codebase-index");
  EXPECT_EQ(limited.explain("src/a.min.js").glob, "*.min.js");
  EXPECT_EQ(limited.explain("sub/trace.log").rule->line, 1U);
  EXPECT_EQ(limited.explain("sub/debug.log").rule->pattern, "!debug.log");  // "language"
  EXPECT_FALSE(limited.explain("a.tmp").rule);  // of no language: git was not asked
  EXPECT_EQ(kind_of(limited.explain("a.py", {.size = 6}).decision), "size");

  // The scope is refreshed, and the rules change, while the question is under way.
  IndexScope* asked = nullptr;
  IndexScope changing(tree.root(), {.excludes_file = [&](const auto&) {
                        if (asked == nullptr) return std::optional<std::filesystem::path>();
                        std::exchange(asked, nullptr)->refresh();
                        return std::optional(tree / "global");
                      }});
  asked = &changing;
  const Explanation explanation = changing.explain("a.tmp.py");
  EXPECT_EQ(explanation.decision.indexable(), !explanation.rule);
}

TEST(IndexScope, OddIgnoreFiles) {
  const TempTree tree;
  tree.make_directory("dir/.gitignore");
  tree.make_directory("fifo");
  const bool fifos = test_system::make_fifo(tree / "fifo/.gitignore");
  tree.write("rules", "*.py\n");
  tree.make_directory("link");
  tree.link("link/.gitignore", "../rules");
  const bool links = std::filesystem::is_symlink(tree / "link/.gitignore");  // not to Wine
  tree.write("binary/.gitignore", "\0\xFF\x80*\n\0*.md\n*.py"sv);
  tree.make_directory("through");
  tree.link("through/link", "../binary");

  const CapturedLog log;
  const IndexScope scope(tree.root());
  EXPECT_TRUE(scope.is_ignored("binary/a.py") && scope.is_ignored("through/link/a.py"));
  for (const auto path : {"dir/a.py"sv, "fifo/a.py"sv, links ? "link/a.py"sv : "fifo/b.py"sv,
                          "dir/b.py"sv, "rules\0/a.py"sv}) {
    EXPECT_FALSE(scope.is_ignored(path)) << path;
  }
  std::string expected;
  const std::string loop = "Too many levels of symbolic links";
  for (const std::string& problem :
       {"dir/.gitignore: Is a directory\n"s, "fifo/.gitignore: Not a regular file\n"s,
        "link/.gitignore: " + loop + "\n"}) {
    if ((problem[0] == 'f' && !fifos) || (problem[0] == 'l' && !links)) continue;
    expected += "Cannot read the ignore rules in " + path_text(tree.root()) + '/' + problem;
  }
  EXPECT_EQ(log.text(), expected);
}

TEST(IndexScope, DeepPaths) {
  const TempTree tree;
  tree.write(".gitignore", "*.md\ndeep/**/ignored\n");
  const IndexScope scope(tree.root());
  std::string deep;
  for (int level = 0; level < 100000; ++level) deep += "d/";
  EXPECT_TRUE(scope.is_indexable(deep + "a.py"));
  EXPECT_EQ(kind_of(scope.is_indexable("node_modules/" + deep + "a.py")), "directory");
  EXPECT_TRUE(scope.explain(deep + "a.md").rule);
}

}  // namespace
}  // namespace path_filter

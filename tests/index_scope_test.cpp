#include "utils/path_filter/index_scope.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/tree_walk.h"

namespace path_filter {
namespace {

static_assert(std::ranges::input_range<Walk>);

std::string kind_of(const Decision& decision) {
  return decision.kind ? std::string(to_string(*decision.kind)) : "";
}

TEST(IndexScope, RulesInTheirOrder) {
  const TempTree tree;
  tree.write(".gitignore", "*.md\nsecret/\n*.min.js\nnode_modules\npackage-lock.json\n");
  const IndexScope scope(tree.root());
  struct Row {
    std::string_view path;
    std::string_view kind;      // "" when the file is in
    std::string_view language;  // "" when the decision has none
  };
  const Row rows[] = {
      {"app.py", "", "python"},
      {"src/app.py", "", "python"},
      {"src\\app.py", "", "python"},
      {"pkg/__init__.py", "", "python"},
      {"memory/wiki/page.ts", "", "typescript"},
      {"docs/memory/codebase-index/x.py", "", "python"},
      {"memory/codebase-indexes/x.py", "", "python"},
      {"node_modules/pkg/index.js", "directory", ""},
      {"a/b/node_modules/c/d/index.js", "directory", ""},
      {"./src/a.py", "directory", ""},
      {"a/../b.py", "directory", ""},
      {"a//b.py", "", "python"},
      {".github/scripts/a.py", "directory", ""},
      {".github/workflows/a.py", "", "python"},
      {"memory/codebase-index/report.py", "index_data", ""},
      {"memory/codebase-index/a/b/report.py", "index_data", ""},
      {"memory/codebase-index/build/report.py", "index_data", ""},
      {"build/memory/codebase-index/report.py", "directory", ""},
      {".env", "unknown_language", ""},
      {"Cargo.lock", "unknown_language", ""},
      {"", "unknown_language", ""},
      {"package-lock.json", "lockfile", "json"},
      {"a.min.js", "minified", "javascript"},
      {"a.min.mjs", "minified", "javascript"},
      {"a.min.cjs", "minified", "javascript"},
      {"a.MIN.js", "", "javascript"},
      {"a.min.ts", "", "typescript"},
      {"README.md", "gitignore", "markdown"},
      {"secret/a.py", "gitignore", "python"},
  };
  for (const Row& row : rows) {
    const Decision decision = scope.is_indexable(row.path);
    EXPECT_EQ(kind_of(decision), row.kind) << row.path;
    EXPECT_EQ(decision.language.value_or(""), row.language) << row.path;
    EXPECT_EQ(decision.indexable, row.kind.empty()) << row.path;
    EXPECT_EQ(decision.reason, decision.kind ? internal::reason_of(*decision.kind) : "");
  }
  for (const std::string_view path : {"/etc/passwd", "C:\\work\\x.py", "\\\\host\\x.py"}) {
    EXPECT_THROW(scope.is_indexable(path), std::invalid_argument);
    EXPECT_THROW(scope.is_ignored(path), std::invalid_argument);
    EXPECT_THROW(scope.admits_directory(path), std::invalid_argument);
  }
}

TEST(IndexScope, Limits) {
  const IndexScope scope("/nowhere", {.limits = IndexLimits{10485760, LanguageSet{"python"}}});
  struct Row {
    std::string_view path;
    std::optional<std::int64_t> size;
    std::string_view kind;
    std::string_view reason;
  };
  for (const Row& row :
       {Row{"a.py", std::nullopt, "", ""}, Row{"a.py", 0, "", ""}, Row{"a.py", 10485760, "", ""},
        Row{"a.py", 10485761, "size", "10.0 MB is over index.max_file_size_mb (10)"},
        Row{"a.ts", 12345678, "size", "11.8 MB is over index.max_file_size_mb (10)"},
        Row{"a.ts", 5, "language", "typescript is not in index.languages"},
        Row{"a.json", 5, "", ""}}) {
    const Decision decision = scope.is_indexable(row.path, {.size = row.size});
    EXPECT_EQ(kind_of(decision), row.kind) << row.path;
    EXPECT_EQ(decision.reason, row.reason);
  }
  const auto reason = [](std::int64_t limit) {
    const IndexScope limited("/nowhere", {.limits = IndexLimits{limit, std::nullopt}});
    return limited.is_indexable("a.py", {.size = limit + 1}).reason;
  };
  EXPECT_EQ(reason(2621440), "2.5 MB is over index.max_file_size_mb (2.5)");
  EXPECT_EQ(reason(1234567LL << 20), "1234567.0 MB is over index.max_file_size_mb (1.23457e+06)");
  EXPECT_EQ(reason(1), "0.0 MB is over index.max_file_size_mb (9.53674e-07)");
}

TEST(IndexScope, Relative) {
  struct Row {
    const char* root;
    const char* path;
    const char* relative;  // null: absent
  };
  for (const Row& row :
       {Row{"/r", "/r/./src//a.py/", "src/a.py"}, Row{"/r", "/r/a", "a"}, Row{"/r/", "/r/a/", "a"},
        Row{"/r", "/r", nullptr}, Row{"/r", "/ra/b", nullptr}, Row{"/r", "/r/a/../../etc", nullptr},
        Row{"/r", "r/a", nullptr}, Row{"/r", "//r/a", nullptr}, Row{"/", "/a", "a"},
        Row{"r", "r/a", "a"}, Row{".", "a/b", "a/b"}, Row{".", "/a/b", nullptr},
        Row{"/r", "", nullptr}, Row{"/r/..", "/r/../a", "a"}, Row{"/r", "/r/a\\b", "a\\b"}}) {
    const auto relative = IndexScope(row.root).relative(row.path);
    EXPECT_EQ(relative.value_or("(absent)"), row.relative == nullptr ? "(absent)" : row.relative)
        << row.path << " in " << row.root;
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
    tree.write("global", "extra.py\n*.tmp\n!app.log\n");
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
  struct Row {
    std::string_view path;
    std::string_view rule;  // "source:line:pattern" of the rule that decides
  };
  const Row rows[] = {
      {"app.log", ".gitignore:1:*.log"},
      {"important.log", ".gitignore:3:!important.log"},
      {"sub/debug.log", "sub/.gitignore:1:!debug.log"},
      {"sub/trace.log", ".gitignore:1:*.log"},
      {"sub/deep/trace.log", ".gitignore:1:*.log"},
      {"build/out.txt", ".gitignore:2:build/"},
      {"sub/build/out.txt", ".gitignore:2:build/"},
      {"logs/keep.log", ".gitignore:4:logs/"},
      {"local/notes.txt", ".git/info/exclude:1:local/"},
      {"gen/code.py", "gen/.gitignore:1:*"},
      {"gen/.gitignore", "gen/.gitignore:1:*"},
      {"extra.py", ".git/info/exclude:2:extra.py"},
      {"a.tmp", "(root)/global:2:*.tmp"},
      {"gen/", ""},
      {"build/", ".gitignore:2:build/"},
      {"README.md", ""},
      {"a//app.log", ".gitignore:1:*.log"},
  };
  for (const Row& row : rows) {
    auto rule = scope.deciding_ignore_rule(row.path);
    if (rule && rule->source.starts_with(tree.root().string())) {
      rule->source.replace(0, tree.root().string().size(), "(root)");
    }
    EXPECT_EQ(rule ? rule->source + ":" + std::to_string(rule->line) + ":" + rule->pattern : "",
              row.rule)
        << row.path;
    if (!row.path.ends_with('/')) {
      EXPECT_EQ(scope.is_ignored(row.path), rule && !rule->pattern.starts_with('!')) << row.path;
    }
  }
  EXPECT_TRUE(scope.admits_directory("gen"));
  EXPECT_TRUE(scope.admits_directory(""));
  EXPECT_FALSE(scope.admits_directory("logs"));
  EXPECT_FALSE(scope.admits_directory("logs/"));
  EXPECT_FALSE(scope.admits_directory("sub\\local"));
  EXPECT_EQ(lookups, 1);
}

TEST_F(Ignoring, ReadsOnceUntilRefresh) {
  EXPECT_FALSE(scope.is_ignored("sub/a.py"));
  tree.write("sub/.gitignore", "a.py\n");
  tree.write(".git/info/exclude", "b.py\n");
  EXPECT_FALSE(scope.is_ignored("sub/a.py"));
  EXPECT_FALSE(scope.is_ignored("b.py"));
  // A directory that nobody has asked about is read when somebody does.
  tree.write("new/.gitignore", "c.py\n");
  EXPECT_TRUE(scope.is_ignored("new/c.py"));

  scope.refresh();
  EXPECT_TRUE(scope.is_ignored("sub/a.py"));
  EXPECT_TRUE(scope.is_ignored("b.py"));
  EXPECT_EQ(lookups, 2);
}

TEST_F(Ignoring, ExcludeFilesAreReadOnlyWhenNoIgnoreFileDecides) {
  EXPECT_TRUE(scope.is_ignored("app.log"));
  EXPECT_EQ(lookups, 0);
  EXPECT_FALSE(scope.is_ignored("app.py"));
  EXPECT_EQ(lookups, 1);
}

TEST_F(Ignoring, FailuresPassThroughAndLeaveTheCachesWhole) {
  tree.write("bad/.git", "gitdir: \xFF");
  tree.write("bad/.gitignore", "*.log\n");
  const IndexScope bad(tree / "bad");
  EXPECT_THROW(bad.is_ignored("a.py"), std::system_error);
  EXPECT_THROW(bad.is_ignored("sub/a.py"), std::system_error);
  EXPECT_TRUE(bad.is_ignored("a.log"));
  tree.write("bad/.git", "");
  EXPECT_FALSE(bad.is_ignored("a.py"));

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

TEST_F(Ignoring, AskOnlyWhatExists) {
  // Without a git directory no exclude file is read.
  std::filesystem::remove_all(tree / ".git");
  EXPECT_FALSE(scope.is_ignored("extra.py"));
  EXPECT_TRUE(scope.is_ignored("app.log"));
  EXPECT_EQ(lookups, 0);
}

TEST_F(Ignoring, LinkedWorkTree) {
  tree.write("main/.git/info/exclude", "shared.py\n");
  tree.write("main/.git/worktrees/w/commondir", "../..\n");
  tree.write("w/.git", "gitdir: " + (tree / "main/.git/worktrees/w").string() + "\n");
  EXPECT_TRUE(IndexScope(tree / "w").is_ignored("shared.py"));
}

TEST_F(Ignoring, Explain) {
  const IndexScope limited(tree.root(), {.limits = IndexLimits{5, std::nullopt}});
  EXPECT_EQ(limited.explain("a/build/b/build/c.py").directory, "a/build");
  EXPECT_EQ(limited.explain("memory/codebase-index/x/c.py").directory, "memory/codebase-index");
  EXPECT_EQ(limited.explain("a.min.js").glob, "*.min.js");
  EXPECT_EQ(limited.explain("sub/trace.log").rule->line, 1U);
  EXPECT_EQ(limited.explain("sub/debug.log").rule->pattern, "!debug.log");
  EXPECT_FALSE(limited.explain("a.bin").rule);
  EXPECT_EQ(kind_of(limited.explain("a.py", {.size = 6}).decision), "size");
}

TEST(IndexScope, MakingOneReadsNothing) {
  const CapturedLog log;
  IndexScope scope("/no/such/root");
  scope.refresh();
  EXPECT_EQ(scope.root, "/no/such/root");
  EXPECT_TRUE(scope.is_indexable("a/b.py"));
  EXPECT_EQ(log.text(), "");
}

TEST(IndexScope, OddIgnoreFiles) {
  const TempTree tree;
  tree.make_directory("dir/.gitignore");
  tree.make_directory("fifo");
  ASSERT_EQ(::mkfifo((tree / "fifo/.gitignore").c_str(), 0600), 0);
  tree.make_directory("link");
  tree.link("link/.gitignore", "../rules");
  tree.write("rules", "*.py\n");
  tree.write("line/.gitignore", std::string(4 << 20, '*') + "x\n*.py\n");
  std::string many;
  for (int number = 0; number < 200000; ++number) {
    many += "name" + std::to_string(number) + ".py\n";
  }
  tree.write("many/.gitignore", many);
  tree.write("binary/.gitignore", std::string("\0\xFF\x80*\n\0*.md\n*.py", 15));
  tree.make_directory("through");
  std::filesystem::create_directory_symlink("../binary", tree / "through/link");

  const CapturedLog log;
  const IndexScope scope(tree.root());
  EXPECT_FALSE(scope.is_ignored("dir/a.py"));
  EXPECT_FALSE(scope.is_ignored("fifo/a.py"));
  EXPECT_FALSE(scope.is_ignored("link/a.py"));
  EXPECT_TRUE(scope.is_ignored("line/a.py"));
  EXPECT_TRUE(scope.is_ignored("many/name199999.py"));
  EXPECT_FALSE(scope.is_ignored("many/name200000.py"));
  EXPECT_TRUE(scope.is_ignored("binary/a.py"));
  EXPECT_TRUE(scope.is_ignored("through/link/a.py"));
  scope.is_ignored("dir/b.py");
  const std::string root = tree.root().string();
  const std::string start = "utils.path_filter warning Cannot read the ignore rules in ";
  EXPECT_EQ(log.text(), start + root + "/dir/.gitignore: Is a directory\n" +  //
                            start + root + "/fifo/.gitignore: Not a regular file\n" + start + root +
                            "/link/.gitignore: Too many levels of symbolic links\n");
}

TEST(IndexScope, DeepPaths) {
  const TempTree tree;
  tree.write(".gitignore", "*.md\ndeep/**/ignored\n");
  const IndexScope scope(tree.root());
  std::string deep;
  for (int level = 0; level < 100000; ++level) deep += "d/";
  EXPECT_TRUE(scope.is_indexable(deep + "a.py"));
  EXPECT_EQ(kind_of(scope.is_indexable(deep + "a.md")), "gitignore");
  EXPECT_EQ(kind_of(scope.is_indexable("node_modules/" + deep + "a.py")), "directory");
  EXPECT_TRUE(scope.explain(deep + "a.md").rule);
}

// --- The walk ------------------------------------------------------------------

struct Walked {
  std::vector<std::string> paths;
  std::vector<std::string> errors;
  std::map<std::string, Exclusion> pruned;
};

Walked walk(const IndexScope& scope) {
  Walked walked;
  for (const std::string& path : scope.walk(
           [&](const std::filesystem::filesystem_error&error) {
             walked.errors.push_back(error.path1().string() + ": " + error.code().message());
           },
           {.on_pruned = [&](std::string_view rel_dir, Exclusion kind) {
             walked.pruned.emplace(rel_dir, kind);
           }})) {
    walked.paths.push_back(path);
  }
  return walked;
}

TEST(Walk, PrunesAndProduces) {
  const TempTree tree;
  tree.write(".gitignore", "ignored/\n*.log\n");
  for (const char* path :
       {"b.txt", "a.txt", "x/c.py", "x/.venv/d", "x/y/e.py", "node_modules/f.js",
        "memory/codebase-index/g.md", "memory/wiki/h.md", "ignored/i.py", "x/ignored/j.py",
        "app.log", "name\xFF\n/k\xFE", "back\\slash/l.py", "x/package-lock.json"}) {
    tree.write(path);
  }
  tree.link("link-to-dir", "x");
  tree.link("link-to-file", "a.txt");
  tree.link("dangling", "gone");
  ASSERT_EQ(::mkfifo((tree / "x/pipe").c_str(), 0600), 0);

  const IndexScope scope(tree.root());
  const Walked walked = walk(scope);
  EXPECT_EQ(
      std::set<std::string>(walked.paths.begin(), walked.paths.end()),
      (std::set<std::string>{".gitignore", "b.txt", "a.txt", "x/c.py", "x/y/e.py",
                             "memory/wiki/h.md", "app.log", "name\xFF\n/k\xFE", "back\\slash/l.py",
                             "x/package-lock.json", "link-to-file", "dangling", "x/pipe"}));
  EXPECT_EQ(walked.errors, std::vector<std::string>());
  EXPECT_EQ(walked.pruned,
            (std::map<std::string, Exclusion>{{"x/.venv", Exclusion::directory},
                                              {"node_modules", Exclusion::directory},
                                              {"memory/codebase-index", Exclusion::index_data},
                                              {"ignored", Exclusion::gitignore},
                                              {"x/ignored", Exclusion::gitignore}}));
  // A directory's own files come first, and each subtree is finished before the next.
  std::set<std::string> finished;
  std::string current;
  for (const std::string& path : walked.paths) {
    const std::string top =
        path.substr(0, path.find('/') == std::string::npos ? 0 : path.find('/'));
    if (top != current) {
      EXPECT_TRUE(finished.insert(top).second || top.empty()) << path;
      EXPECT_FALSE(top.empty() && !current.empty()) << path;
      current = top;
    }
  }
}

TEST(Walk, DecidesAsTheScopeDoes) {
  const TempTree tree;
  tree.write(".gitignore", "*.log\n/x/\n");
  tree.write("sub/.gitignore", "!a.log\nb.py\n");
  for (const char* path :
       {"a.py", "a.log", "x/a.py", "sub/a.log", "sub/b.py", "sub/deep/b.py", "sub/c.bin", "a\\b.py",
        "back\\slash/b.py", "C:/drive.py", "\\root.py"}) {
    tree.write(path);
  }
  const IndexScope scope(tree.root(), {.limits = IndexLimits{10, std::nullopt}});
  const IndexScope other(tree.root(), {.limits = IndexLimits{10, std::nullopt}});
  const auto answer = [](const auto& question) {
    try {
      const Decision decision = question();
      return kind_of(decision) + decision.reason + decision.language.value_or("");
    } catch (const std::invalid_argument& error) {
      return std::string(error.what());
    }
  };
  int files = 0;
  Walk walk = scope.walk();
  for (const std::string& path : walk) {
    for (const FileFacts facts : {FileFacts{}, FileFacts{.size = 11}}) {
      EXPECT_EQ(answer([&] { return walk.decide(facts); }),
                answer([&] { return other.is_indexable(path, facts); }))
          << path;
    }
    ++files;
  }
  EXPECT_EQ(files, 12);
}

TEST(Walk, Errors) {
  const TempTree tree;
  tree.make_directory("empty");
  tree.write("file");
  tree.make_directory("root/\\absolute");
  tree.write("root/a.py");
  const std::string root = tree.root().string();
  EXPECT_EQ(walk(IndexScope(tree / "empty")).paths.size(), 0U);
  EXPECT_EQ(walk(IndexScope(tree / "missing")).errors,
            std::vector<std::string>{root + "/missing: No such file or directory"});
  EXPECT_EQ(walk(IndexScope(tree / "file")).errors,
            std::vector<std::string>{root + "/file: Not a directory"});
  const Walked hostile = walk(IndexScope(tree / "root"));
  EXPECT_EQ(hostile.paths, std::vector<std::string>{"a.py"});
  EXPECT_EQ(hostile.errors, std::vector<std::string>{root + "/root/\\absolute: Invalid argument"});

  const IndexScope missing(tree / "missing");
  Walk throwing = missing.walk([](const auto&) { throw std::logic_error("stop"); });
  EXPECT_THROW(throwing.begin(), std::logic_error);
  EXPECT_TRUE(throwing.begin() == throwing.end());
}

TEST(Walk, RootMayBeALinkButNothingBelowIt) {
  const TempTree tree;
  tree.write("real/a/b.py");
  tree.write("outside/secret.py");
  tree.link("root", "real");
  const IndexScope scope(tree / "root");
  EXPECT_EQ(walk(scope).paths, std::vector<std::string>{"a/b.py"});

  // The directory is listed as one and replaced by a link before it is visited.
  tree.write("real/first.py");
  tree.write("outside/.gitignore", "*\n");
  std::vector<std::string> paths;
  std::vector<std::string> errors;
  for (const std::string& path :
       scope.walk([&](const auto& error) { errors.push_back(error.code().message()); })) {
    paths.push_back(path);
    std::filesystem::remove_all(tree / "real/a");
    std::filesystem::create_directory_symlink("../outside", tree / "real/a");
  }
  EXPECT_EQ(paths, std::vector<std::string>{"first.py"});
  EXPECT_EQ(errors.size(), 1U);
}

TEST(Walk, HoldsNothingOpenBetweenPathsAndIsLazy) {
  const TempTree tree;
  tree.write("a.py");
  tree.write("x/b.py");
  const auto open_files = [] {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      count += entry.path().empty() ? 0 : 1;
    }
    return count;
  };
  const int before = open_files();
  const IndexScope scope(tree.root());
  Walk walk = scope.walk();
  tree.write("late.py");  // nothing has been read yet
  std::set<std::string> paths;
  for (const std::string& path : walk) {
    EXPECT_EQ(open_files(), before);
    paths.insert(path);
  }
  EXPECT_TRUE(paths.contains("late.py"));
}

TEST(Walk, DeeperThanAnyPathTheSystemTakes) {
  const TempTree tree;
  const std::string name(200, 'd');
  int directory = ::open(tree.root().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(directory, 0);
  constexpr int LEVELS = 40;  // 8,000 bytes
  for (int level = 0; level < LEVELS; ++level) {
    ASSERT_EQ(::mkdirat(directory, name.c_str(), 0700), 0);
    const int next = ::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(directory);
    directory = next;
  }
  for (const char* file : {"a.py", "b.py", ".gitignore"}) {
    const int made = ::openat(directory, file, O_CREAT | O_WRONLY, 0600);
    if (file[0] == '.') {
      ASSERT_EQ(::write(made, "b.py\n", 5), 5);
    }
    ::close(made);
  }
  ::close(directory);
  const IndexScope scope(tree.root());
  const Walked walked = walk(scope);
  EXPECT_EQ(walked.errors, std::vector<std::string>());
  ASSERT_EQ(walked.paths.size(), 3U);
  for (const std::string& path : walked.paths) {
    EXPECT_EQ(scope.is_ignored(path), path.ends_with("/b.py"));
  }
}

}  // namespace
}  // namespace path_filter

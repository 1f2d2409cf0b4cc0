#include "utils/path_filter/index_scope/tree_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support.h"

namespace path_filter {
namespace {

static_assert(std::ranges::input_range<Walk>);

struct Walked {
  std::vector<std::string> paths;
  std::vector<std::string> errors;
  std::map<std::string, Exclusion> pruned;

  WalkErrorHandler on_error() {
    return [this](const std::filesystem::filesystem_error& error) {
      errors.push_back(path_text(error.path1()) + ": " + error.code().message());
    };
  }
  PruneHandler on_pruned() {
    return [this](ScopeDirectory directory, std::string_view rel_dir, Exclusion kind) {
      EXPECT_EQ(directory.path(), rel_dir);
      pruned.emplace(rel_dir, kind);
    };
  }
};

Walked walk(const IndexScope& scope) {
  Walked walked;
  for (const std::string& path : scope.walk(walked.on_error())) walked.paths.push_back(path);
  return walked;
}

/// Lists the tree with two listers that take turns, in another order than a walk's.
void expect_listers_find(Walked walked, const std::filesystem::path& root,
                         const std::map<std::string, Exclusion>& pruned = {}) {
  Walked listed;
  const IndexScope scope(root);
  DirectoryLister lister(scope, listed.on_error(), listed.on_pruned());
  DirectoryLister other(scope, listed.on_error(), listed.on_pruned());
  for (std::vector queue{ScopeDirectory(scope, "")}; !queue.empty(); std::swap(lister, other)) {
    const ScopeDirectory directory = queue.back();
    queue.pop_back();
    lister.list(directory);
    while (const std::string* path = lister.next_file()) listed.paths.push_back(*path);
    while (auto below = lister.next_directory()) queue.push_back(*below);
  }
  std::ranges::sort(walked.paths);
  std::ranges::sort(listed.paths);
  EXPECT_TRUE(listed.paths == walked.paths && listed.errors == walked.errors &&
              listed.pruned == pruned)
      << root << testing::PrintToString(listed.paths) << testing::PrintToString(listed.errors);
}

TEST(Walk, PrunesAndProduces) {
  const TempTree tree;
  tree.write(".gitignore", "ignored/\n*.log\n");
  std::set<std::string> files{"app.log", "x/y/e.py", "memory/wiki/h.md",
                              "b.txt",   "a.txt",    "x/c.py"};
  if (test_system::NAMES_ARE_BYTES) files.insert({"name\xFF\n/k\xFE", "back\\slash/l.py"});
  for (const std::string& path : files) tree.write(path);
  const std::map<std::string, Exclusion> pruned{{"x/.venv", Exclusion::directory},
                                                {"node_modules", Exclusion::directory},
                                                {"memory/codebase-index", Exclusion::index_data},
                                                {"ignored", Exclusion::gitignore},
                                                {"x/ignored", Exclusion::gitignore}};
  for (const auto& [path, kind] : pruned) tree.write(path + "/a.py");
  tree.link("link-to-dir", "x");
  tree.link("link-to-file", "a.txt");
  tree.link("dangling", "gone");
  files.insert({".gitignore", "link-to-file"});
  if (test_system::make_fifo(tree / "x/pipe")) files.insert("x/pipe");
  if (std::filesystem::is_symlink(tree / "dangling")) files.insert("dangling");  // Wine has none

  const Walked walked = walk(IndexScope(tree.root()));
  EXPECT_EQ(std::set(walked.paths.begin(), walked.paths.end()), files);
  EXPECT_EQ(walked.errors, std::vector<std::string>());
  // A directory's own files come first, and each subtree is finished before the next.
  std::vector<std::string> tops;
  for (const std::string& path : walked.paths) tops.push_back(path.substr(0, path.find('/') + 1));
  tops.erase(std::unique(tops.begin(), tops.end()), tops.end());
  EXPECT_EQ(tops.front(), "");
  EXPECT_EQ(std::set(tops.begin(), tops.end()).size(), tops.size());
  expect_listers_find(walked, tree.root(), pruned);
}

// That a walk decides as its scope does, on any tree, is what fuzz/tree_fuzzer.cpp shows.
TEST(DirectoryLister, DecidesByTheLimitsAndTheRulesOfItsListing) {
  if (!test_system::NAMES_ARE_BYTES) GTEST_SKIP() << "no file here has such a name";
  const TempTree tree;
  for (const char* path : {"a.py", "C:/drive.py", "\\root.py"}) tree.write(path);
  IndexScope scope(tree.root(), {.limits = IndexLimits{10, std::nullopt}});
  DirectoryLister lister(scope);
  lister.list(ScopeDirectory(scope, ""));
  EXPECT_TRUE(lister.list(ScopeDirectory(scope, "")));  // once more
  tree.write(".gitignore", "a.py\n");
  scope.refresh();
  while (const std::string* path = lister.next_file()) {
    if (*path == "a.py") {
      EXPECT_TRUE(lister.decide({.size = 10}));
      EXPECT_EQ(lister.decide({.size = 11}).kind(), Exclusion::size);
    } else {
      EXPECT_THROW(lister.decide(), std::invalid_argument) << *path;
    }
  }
}

TEST(Walk, Errors) {
  const TempTree tree;
  tree.make_directory("empty");
  tree.write("file");
  if (test_system::NAMES_ARE_BYTES) tree.make_directory("root/\\absolute");
  tree.write("root/a.py");
  using Texts = std::vector<std::string>;
  struct Row {
    const char* root;
    Texts paths;
    Texts errors;
  };
  for (const auto& [root, paths, errors] :
       {Row{"empty", {}, {}}, Row{"missing", {}, {"/missing: No such file or directory"}},
        Row{"file", {}, {"/file: Not a directory"}},
        Row{"root",
            {"a.py"},
            test_system::NAMES_ARE_BYTES ? Texts{"/root/\\absolute: Invalid argument"}
                                         : Texts{}}}) {
    Walked walked = walk(IndexScope(tree / root));
    expect_listers_find(walked, tree / root);
    EXPECT_EQ(walked.paths, paths) << root;
    for (std::string& error : walked.errors) error.erase(0, tree.root().native().size());
    EXPECT_EQ(walked.errors, errors) << root;
  }
  const IndexScope missing(tree / "missing");
  Walk throwing = missing.walk([](const auto&) { throw std::logic_error("stop"); });
  EXPECT_THROW(throwing.begin(), std::logic_error);
  EXPECT_TRUE(throwing.begin() == throwing.end());
}

TEST(Walk, FollowsNoLinkBelowTheRoot) {
  const TempTree tree;
  tree.write("outside/.gitignore", "*\n");
  tree.write("outside/secret.py");
  tree.write("real/a/b/c.py");
  tree.link("root", "real");
  const IndexScope scope(tree / "root");
  EXPECT_EQ(walk(scope).paths, std::vector<std::string>{"a/b/c.py"});

  if (!std::filesystem::is_symlink(tree / "root")) GTEST_SKIP() << "Wine opens where a link leads";
  // The directory is listed as one and replaced by a link before it is visited.
  tree.write("real/first.py");
  std::vector<std::string> errors;
  for (const std::string& path :
       scope.walk([&](const auto& error) { errors.push_back(error.code().message()); })) {
    EXPECT_EQ(path, "first.py");
    std::filesystem::remove_all(tree / "real/a");
    tree.link("real/a", "../outside");
  }
  EXPECT_EQ(errors.size(), 1U);
  EXPECT_FALSE(DirectoryLister(scope).list(ScopeDirectory(scope, "a")));
}

TEST(Walk, HoldsNothingOpenBetweenPathsAndIsLazy) {
  const TempTree tree;
  tree.write("a.py");
  tree.write("w/x/y/b.py");
  tree.write("w/x/z/b.py");
  const auto before = test_system::open_files();
  IndexScope scope(tree.root());
  Walk walk = scope.walk();
  tree.write("late.py");  // nothing has been read yet
  std::set<std::string> paths;
  for (const std::string& path : walk) {
    EXPECT_EQ(test_system::open_files(), before);
    paths.insert(path);
  }
  EXPECT_EQ(paths.size(), 4U);
  EXPECT_TRUE(paths.contains("late.py"));
}

/// A way up that leads elsewhere, as a directory has been moved, is not taken.
TEST(DirectoryLister, GoesUpWhereItCameDown) {
  const TempTree tree;
  const auto down = [](int level) {
    std::string path;
    while (level-- > 0) path += "d/";
    return path;
  };
  for (int level = 0; level < 80; ++level) {
    tree.write(down(level) + "s/" + std::to_string(level) + ".py");
  }
  const IndexScope scope(tree.root());
  DirectoryLister lister(scope);
  std::set<std::string> found;
  for (std::vector pending{ScopeDirectory(scope, "")}; !pending.empty();) {
    const ScopeDirectory directory = pending.back();
    pending.pop_back();
    lister.list(directory);
    std::vector<ScopeDirectory> below;  // the one that goes on is taken first
    while (const auto next = lister.next_directory()) {
      below.insert(next->path().ends_with('d') ? below.end() : below.begin(), *next);
    }
    pending.insert(pending.end(), below.begin(), below.end());
    while (const std::string* path = lister.next_file()) found.insert(*path);
    if (found.contains(down(79) + "s/79.py")) {
      std::error_code done;
      std::filesystem::rename(tree / down(60), tree / "moved", done);
    }
  }
  for (int level = 0; level < 60; ++level) {
    EXPECT_EQ(found.erase(down(level) + "s/" + std::to_string(level) + ".py"), 1U) << level;
  }
  for (const std::string& path : found) {
    const auto level = std::to_string(std::ranges::count(path, 'd'));
    EXPECT_TRUE(path.ends_with("/s/" + level + ".py")) << path;
  }
}

}  // namespace
}  // namespace path_filter

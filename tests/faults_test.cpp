// What the system refuses: memory, file descriptors, permissions, and files that are
// gone by the time they are opened. Each leaves an answer and whole caches.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/tree_walk.h"

// The sanitizers bring an operator new of their own, and need file descriptors for some
// of their checks.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define SANITIZED 1
#endif
#endif

#ifndef SANITIZED
namespace {

/// How many allocations this thread is granted before one fails; negative: all.
thread_local int allocations_left = -1;

void* allocate(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  if (void* memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace path_filter {
namespace {

#ifndef SANITIZED
TEST(Faults, MemoryThatCannotBeHadLeavesTheCachesWhole) {
  const TempTree tree;
  std::string rules = "*.log\nbuild[0-9]/\n**/x*y/z\n!keep.log\n";
  for (int number = 0; number < 200; ++number) rules += "name" + std::to_string(number) + "*z\n";
  tree.write(".gitignore", rules);
  tree.write("a/b/.gitignore", "!a.log\nb.py\n");
  tree.write(".git/info/exclude", "excluded.py\n");
  std::string deep = "a/b/";
  for (int level = 0; level < 300; ++level) deep += "directory" + std::to_string(level) + "/";

  const auto answers = [&](const IndexScope& scope) {
    return scope.is_ignored("a/b/a.log") == false && scope.is_ignored("a/b/b.py") &&
           scope.is_ignored("a/c.log") && scope.is_ignored("a/b/excluded.py") &&
           scope.is_ignored(deep + "c.log") && !scope.admits_directory("a/build7");
  };
  // Every allocation of the questions fails once.
  int failures = 0;
  for (int granted = 0;; ++granted) {
    const IndexScope scope(tree.root());
    allocations_left = granted;
    bool failed = false;
    try {
      answers(scope);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    allocations_left = -1;
    ASSERT_TRUE(answers(scope)) << "after " << granted << " allocations";
    if (!failed) break;
    ++failures;
  }
  EXPECT_GT(failures, 100);
}

TEST(Faults, FileDescriptorsUsedUp) {
  const TempTree tree;
  tree.write("a/.gitignore", "*.py\n");
  tree.write("a/b.py");
  IndexScope scope(tree.root());
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  const CapturedLog log;
  std::vector<std::string> errors;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const bool ignored = scope.is_ignored("a/b.py");
  for (const std::string& path :
       scope.walk([&](const auto& error) { errors.push_back(error.code().message()); })) {
    ADD_FAILURE() << path;
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_FALSE(ignored);
  EXPECT_EQ(errors, std::vector<std::string>{"Too many open files"});
  EXPECT_NE(log.text().find("/a/.gitignore: Too many open files"), std::string::npos) << log.text();
  scope.refresh();
  EXPECT_TRUE(scope.is_ignored("a/b.py"));
}

#endif

TEST(Faults, PermissionsLost) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can drop its privileges";
  const TempTree tree;
  tree.write("closed/a.py");
  tree.write("open/b.py");
  tree.write("open/.gitignore", "*.py\n");
  std::filesystem::permissions(tree.root(), std::filesystem::perms::all);
  ::chmod((tree / "closed").c_str(), 0);
  ::chmod((tree / "open/.gitignore").c_str(), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    constexpr uid_t NOBODY = 65534;
    if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0) ::_exit(10);
    const CapturedLog log;
    const IndexScope scope(tree.root());
    int errors = 0;
    std::vector<std::string> paths;
    Walk walk = scope.walk([&](const std::filesystem::filesystem_error& error) {
      errors += error.code() == std::errc::permission_denied && error.path1() == tree / "closed";
    });
    for (const std::string& path : walk) {
      paths.push_back(path);
      if (!walk.decide() && path.ends_with(".py")) ::_exit(11);
    }
    const bool warned = log.text().find("/open/.gitignore: Permission denied") != std::string::npos;
    ::_exit(errors == 1 && paths.size() == 2 && warned ? 0 : 12);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ::chmod((tree / "closed").c_str(), 0700);
}

TEST(Faults, GoneBetweenListingAndOpening) {
  struct Row {
    const char* what;
    std::function<void(const TempTree&)> happens;
    const char* error;  // "" when there is none
  };
  const Row rows[] = {
      {"the directory vanishes",
       [](const TempTree& tree) { std::filesystem::remove_all(tree / "sub"); },
       "No such file or directory"},
      {"the directory becomes a file",
       [](const TempTree& tree) {
         std::filesystem::remove_all(tree / "sub");
         tree.write("sub");
       },
       "Not a directory"},
      {"the directory becomes a link",
       [](const TempTree& tree) {
         std::filesystem::rename(tree / "sub", tree / "node_modules/sub");
         tree.link("sub", "node_modules/sub");
       },
       "Too many levels of symbolic links"},
      {"the ignore file vanishes",
       [](const TempTree& tree) { std::filesystem::remove(tree / "sub/.gitignore"); }, ""},
      {"the ignore file becomes a link",
       [](const TempTree& tree) {
         std::filesystem::rename(tree / "sub/.gitignore", tree / "node_modules/rules");
         tree.link("sub/.gitignore", "../node_modules/rules");
       },
       ""},
  };
  for (const Row& row : rows) {
    const TempTree tree;
    tree.write("first.py");
    tree.write("sub/a.py");
    tree.write("sub/.gitignore", "a.py\n");
    tree.make_directory("node_modules");
    const CapturedLog log;
    const IndexScope scope(tree.root());
    std::vector<std::string> errors;
    bool happened = false;
    for (const std::string& path :
         scope.walk([&](const auto& error) { errors.push_back(error.code().message()); })) {
      if (!std::exchange(happened, true)) row.happens(tree);
      if (path == "sub/a.py") {
        EXPECT_FALSE(scope.is_ignored(path)) << row.what;
      }
    }
    EXPECT_EQ(errors,
              *row.error == '\0' ? std::vector<std::string>{} : std::vector<std::string>{row.error})
        << row.what;
  }
}

}  // namespace
}  // namespace path_filter

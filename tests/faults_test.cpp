// What is taken of the system, and what it refuses: memory and file descriptors. Each leaves an
// answer and whole caches.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/index_scope/tree_walk.h"

/// How many allocations this thread is granted before one fails; negative: all.
static thread_local int allocations_left = -1;
static thread_local std::size_t live_bytes, peak_bytes;

void* operator new(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  void* memory = std::malloc(size > 0 ? size : 1);
  peak_bytes = std::max(peak_bytes, live_bytes += ::malloc_usable_size(memory) + sizeof(size));
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  live_bytes -= memory == nullptr ? 0 : ::malloc_usable_size(memory) + sizeof(std::size_t);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace path_filter {
namespace {

using Texts = std::vector<std::string>;

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
  for (bool failed = true; failed; failures += failed ? 1 : 0) {
    const IndexScope scope(tree.root());
    allocations_left = failures;
    failed = false;
    try {
      answers(scope);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    allocations_left = -1;
    ASSERT_TRUE(answers(scope)) << "after " << failures << " allocations";
  }
  EXPECT_GT(failures, 50);
}

TEST(Memory, RuleSetsTakeFewTimesTheirText) {
  for (const std::string_view line :  // with other letters for the zeros in each line
       {"?", "*", "0", "00", "000", "?00", "*.000", "[x]", "[!x]0", "[a-z]", "*0*", "*000*", "a/00",
        "?\n0", "?\n??", "000\n\n\n", "\\0000/**"}) {
    std::string content;
    for (std::minstd_rand random; content.size() < 1 << 20; content += '\n')
      for (const char step : line) content += step == '0' ? "abcdefgh"[random() / 99 % 8] : step;
    const std::size_t before = peak_bytes = live_bytes;
    EXPECT_TRUE(GitIgnoreSpec::from_content(content));
    EXPECT_LE(peak_bytes - before, 7 * content.size()) << line;  // and once the content
  }
  const std::size_t before = live_bytes;
  const auto rules = GitIgnoreSpec::from_content("*.log\n/build/*/\n[Dd]ebug/\n!a\n");
  EXPECT_LE(live_bytes - before + sizeof(rules), 30U + 300U);
}

/// A walk that can open a directory and nothing else, once the rules have to be read anew.
TEST(Faults, FileDescriptorsUsedUp) {
  const TempTree tree;
  tree.write(".gitignore", "*.md\n");
  tree.write("a/.gitignore", "*.py\n");
  tree.write("a/b/c.py");
  IndexScope scope(tree.root());
  Texts errors;
  const auto on_error = [&](const auto& error) { errors.push_back(error.code().message()); };
  Walk walk = scope.walk(on_error);
  auto path = ++walk.begin();  // that of "a"
  scope.refresh();
  const CapturedLog log;
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const int free = ::dup(0);
  ::close(free);
  const auto grant = [&](int descriptors) {
    const rlimit granted{static_cast<rlim_t>(free + descriptors), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &granted), 0);
  };
  grant(2);  // enough to list a directory, too few to read a file below it
  ++path;
  grant(0);
  Walk none = scope.walk(on_error);
  EXPECT_TRUE(none.begin() == none.end());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(*path, "a/b/c.py");
  const std::string too_many = std::generic_category().message(EMFILE);
  EXPECT_EQ(errors, Texts{too_many});
  std::string expected;
  for (const char* file : {".gitignore", "a/.gitignore"}) {
    expected +=
        "Cannot read the ignore rules in " + (tree / file).string() + ": " + too_many + "\n";
  }
  EXPECT_EQ(log.text(), expected);
  scope.refresh();
  EXPECT_TRUE(scope.is_ignored("a/b/c.py"));
}

}  // namespace
}  // namespace path_filter

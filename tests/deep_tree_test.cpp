// A tree that is deeper than a path is long, made by what POSIX alone has for it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "tests/support.h"
#include "utils/path_filter/index_scope/tree_walk.h"

namespace path_filter {

/// Each directory is opened from the one above: from the top, this tree would take minutes.
/// Its paths are longer than the system takes.
TEST(Walk, GoesDownADeepTree) {
  const TempTree tree;
  int directory = ::open(tree.root().c_str(), O_RDONLY | O_DIRECTORY);
  constexpr int LEVELS = 40000;
  for (int level = 0; level < LEVELS; ++level) {
    ASSERT_EQ(::mkdirat(directory, "d", 0700), 0);
    ::close(std::exchange(directory, ::openat(directory, "d", O_RDONLY | O_DIRECTORY)));
  }
  for (const char* file : {"a.py", "b.py", ".gitignore"}) {
    const int made = ::openat(directory, file, O_CREAT | O_WRONLY, 0600);
    if (file[0] == '.') {
      EXPECT_EQ(::write(made, "b.py\n", 5), 5);
    }
    ::close(made);
  }
  const IndexScope scope(tree.root());
  int files = 0;
  for (const std::string& path : scope.walk([](const auto& error) { FAIL() << error.what(); })) {
    ++files;
    EXPECT_EQ(scope.is_ignored(path), path.ends_with("/b.py"));
    ::unlinkat(directory, path.substr(path.rfind('/') + 1).c_str(), 0);
  }
  EXPECT_EQ(files, 3);
  for (int level = 0; level < LEVELS; ++level) {
    ::close(std::exchange(directory, ::openat(directory, "..", O_RDONLY | O_DIRECTORY)));
    ::unlinkat(directory, "d", AT_REMOVEDIR);
  }
  ::close(directory);
}

}  // namespace path_filter

// One scope, several threads: questions and walks go on while the caches are replaced
// and the ignore files change. Run under ThreadSanitizer, this is also the proof that
// the scope has no data race.

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/tree_walk.h"

namespace path_filter {
namespace {

TEST(Threads, RefreshRacesWithQuestionsAndWalks) {
  constexpr int DIRECTORIES = 40;
  constexpr int ROUNDS = 40;
  const TempTree tree;
  tree.write(".git/info/exclude", "excluded.py\n");
  tree.write(".gitignore", "*.log\n");
  for (int number = 0; number < DIRECTORIES; ++number) {
    const std::string directory = "d" + std::to_string(number) + "/sub";
    tree.write(directory + "/a.py");
    tree.write(directory + "/never.log");
    tree.write(directory + "/excluded.py");
    tree.write(directory + "/.gitignore", "maybe.py\n");
  }

  IndexScope scope(tree.root(), {.excludes_file = [](const auto&) {
                     return std::optional<std::filesystem::path>();
                   }});
  std::atomic<int> wrong{0};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < ROUNDS; ++round) {
        for (int number = 0; number < DIRECTORIES; ++number) {
          const std::string directory = "d" + std::to_string((number + thread) % DIRECTORIES);
          // What no change on disk touches has one right answer at any time.
          if (!scope.is_indexable(directory + "/sub/a.py")) ++wrong;
          if (!scope.is_ignored(directory + "/sub/never.log")) ++wrong;
          if (!scope.is_ignored(directory + "/sub/excluded.py")) ++wrong;
          if (!scope.admits_directory(directory + "/sub")) ++wrong;
          scope.is_ignored(directory + "/sub/maybe.py");
        }
      }
    });
  }
  threads.emplace_back([&] {
    while (!done) {
      int files = 0;
      for (const std::string& path : scope.walk()) files += path.ends_with("/a.py") ? 1 : 0;
      if (files != DIRECTORIES) ++wrong;
    }
  });
  threads.emplace_back([&] {
    for (int round = 0; !done; ++round) {
      tree.write("d" + std::to_string(round % DIRECTORIES) + "/sub/.gitignore",
                 round % 2 == 0 ? "" : "maybe.py\n");
      scope.refresh();
    }
  });
  for (int thread = 0; thread < 3; ++thread) threads[static_cast<std::size_t>(thread)].join();
  done = true;
  threads[3].join();
  threads[4].join();
  EXPECT_EQ(wrong, 0);

  scope.refresh();
  for (int number = 0; number < DIRECTORIES; ++number) {
    const std::string directory = "d" + std::to_string(number) + "/sub";
    tree.write(directory + "/.gitignore", "maybe.py\n");
    EXPECT_TRUE(scope.is_ignored(directory + "/maybe.py"));
  }
}

}  // namespace
}  // namespace path_filter

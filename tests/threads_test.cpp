// One scope, several threads: questions and walks go on while two threads replace the caches
// and the ignore files change. Run under ThreadSanitizer, this is also the proof that the
// scope has no data race.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/index_scope/replaceable.h"
#include "utils/path_filter/index_scope/tree_walk.h"

namespace path_filter {
namespace {

TEST(Threads, RefreshRacesWithQuestionsAndWalks) {
  constexpr int DIRECTORIES = 40;
  const CapturedLog log;
  const TempTree tree;
  tree.write(".git/info/exclude", "excluded.py\n");
  tree.write(".gitignore", "*.log\n");
  tree.make_directory("d0/.gitignore");  // which is warned about
  const auto in = [](int number) { return "d" + std::to_string(number % DIRECTORIES) + "/s/"; };
  for (int number = 0; number < DIRECTORIES; ++number) tree.write(in(number) + "a.py");
  IndexScope scope(tree.root());
  std::atomic<int> wrong{0};
  std::atomic<int> asking{3};
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      for (int question = 0; question < 40 * DIRECTORIES; ++question) {
        // What no change on disk touches has one right answer at any time.
        const std::string directory = in(question + thread);
        wrong += scope.is_indexable(directory + "a.py") ? 0 : 1;
        wrong += scope.is_ignored(directory + "never.log") ? 0 : 1;
        wrong += scope.is_ignored(directory + "excluded.py") ? 0 : 1;
        wrong += scope.admits_directory(directory) ? 0 : 1;
        scope.is_ignored(directory + "maybe.py");
      }
      --asking;
    });
  }
  threads.emplace_back([&] {
    while (asking > 0) {
      int files = 0;
      for (const std::string& path : scope.walk()) files += path.ends_with("/a.py") ? 1 : 0;
      wrong += files == DIRECTORIES ? 0 : 1;
    }
  });
  for (const char* rules : {"", "maybe.py\n"}) {
    threads.emplace_back([&, rules] {
      for (int round = 0; asking > 0; ++round) {
        tree.write(in(round) + ".gitignore", rules);
        scope.refresh();
      }
    });
  }
  threads.emplace_back([&] {
    while (asking > 0) logger->set_sink([](const Warning& warning) { warning.message(); });
  });
  threads.clear();
  EXPECT_EQ(wrong, 0);
}

/// A thread that has seen a value through one slot sees none before it through another.
TEST(Threads, ReplacingIsOneStep) {
  internal::Replaceable<int> value(std::make_shared<int>(0));
  std::atomic<bool> done{false};
  const std::jthread replacing([&] {
    for (int number = 1; number <= 50000; ++number) value.replace(std::make_shared<int>(number));
    done = true;
  });
  int wrong = 0;
  for (int last = 0; !done;) {
    for (const std::size_t slot : {std::size_t{0}, value.SLOTS - 1}) {
      const int now = *value.take(slot);
      wrong += now < last ? 1 : 0;
      last = now;
    }
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace path_filter

// What a scope's answers cost, each beside what they are measured against. Every run of a
// benchmark asks about all files of the tree (see benchmark_tree.h), so that the times of two
// benchmarks are a ratio as they stand.
//
//   Warm       is_indexable in known directories; against MapLookup, one lookup of the whole
//              path in a hash table that holds all of them, and against Libgit2. The first two
//              in the order of a walk and (shuffled) in a random one.
//   First      All questions to a new scope, its reads included; against BareWalk, which
//              lists the tree and decides nothing. WalkAndAsk lists and decides.
//   Threads    Questions per second of threads that ask one scope, or (own) each its own: what
//              the machine has to give at that moment.
//   Indexed    Warm questions about the files that are in; counts their allocations.
//   Refresh    Of a scope that knows so many directories, 10,000 of them with an ignore file
//              (`rules`) or none; and FirstAfter, one question about the directory that came
//              last, before a refresh (known) and after it.
//   IsTestPath Against LanguageAndLockfile, the registry's share of is_indexable.

#include <benchmark/benchmark.h>
#include <git2.h>
#include <stdlib.h>  // NOLINT: mkdtemp is POSIX

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <latch>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "benchmarks/benchmark_tree.h"
#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/test_code/test_code.h"

namespace {

/// Of this thread; one that all threads share would slow them down.
thread_local std::size_t allocations = 0;

void* allocate(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void* allocate(std::size_t size, std::align_val_t alignment) {
  ++allocations;
  const auto align = static_cast<std::size_t>(alignment);
  if (void* memory = std::aligned_alloc(align, (size + align - 1) / align * align)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// The other forms call these.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, alignment);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace {

using benchmarks::bare_walk;
using benchmarks::benchmark_tree;
using benchmarks::open_benchmark_tree;
using benchmarks::paths_of_tree;
using path_filter::IndexScope;

/// The paths in one of two orders, each laid out in memory in its own order.
const std::vector<std::string>& questions(bool shuffled) {
  static const std::vector<std::string> in_random_order = [] {
    std::vector<std::string> paths = paths_of_tree();
    std::shuffle(paths.begin(), paths.end(), std::mt19937(1));  // NOLINT: the same each time
    return std::vector<std::string>(paths);
  }();
  return shuffled ? in_random_order : paths_of_tree();
}

std::int64_t ask_all(const IndexScope& scope, const std::vector<std::string>& paths) {
  std::int64_t indexed = 0;
  for (const std::string& path : paths) indexed += scope.is_indexable(path) ? 1 : 0;
  return indexed;
}

std::unique_ptr<IndexScope> make_warm_scope() {
  auto scope = std::make_unique<IndexScope>(benchmark_tree());
  ask_all(*scope, paths_of_tree());
  return scope;
}

const IndexScope& warm_scope() {
  static const std::unique_ptr<IndexScope> scope = make_warm_scope();
  return *scope;
}

/// Times `ask`, which answers all questions about the tree and returns how many said yes.
template <class Ask>
void run(benchmark::State& state, const Ask& ask) {
  std::int64_t yes = 0;
  for (auto _ : state) benchmark::DoNotOptimize(yes = ask());
  state.counters["yes"] = static_cast<double>(yes);
  state.SetItemsProcessed(static_cast<std::int64_t>(paths_of_tree().size()) * state.iterations());
}

void Warm(benchmark::State& state) {
  const IndexScope& scope = warm_scope();
  const std::vector<std::string>& paths = questions(state.range(0) != 0);
  run(state, [&] { return ask_all(scope, paths); });
}
BENCHMARK(Warm)->ArgName("shuffled")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void MapLookup(benchmark::State& state) {
  static const std::unordered_map<std::string, bool> answers = [] {
    std::unordered_map<std::string, bool> made;
    for (const std::string& path : paths_of_tree()) {
      made.emplace(path, warm_scope().is_indexable(path).indexable());
    }
    return made;
  }();
  const std::vector<std::string>& paths = questions(state.range(0) != 0);
  run(state, [&] {
    std::int64_t indexed = 0;
    for (const std::string& path : paths) indexed += answers.find(path)->second ? 1 : 0;
    return indexed;
  });
}
BENCHMARK(MapLookup)->ArgName("shuffled")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

/// An empty repository that lies outside the tree and has the tree as its work tree. It
/// reads no configuration of the user's or the system's.
class Libgit2Repository {
 public:
  Libgit2Repository() {
    std::string name = (std::filesystem::temp_directory_path() / "scope_benchmark.XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    _directory = name;
    git_libgit2_init();
    for (const git_config_level_t level : {GIT_CONFIG_LEVEL_SYSTEM, GIT_CONFIG_LEVEL_XDG,
                                           GIT_CONFIG_LEVEL_GLOBAL, GIT_CONFIG_LEVEL_PROGRAMDATA}) {
      check(git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, level, name.c_str()));
    }
    check(git_repository_init(&_repository, name.c_str(), /*is_bare=*/1));
    check(git_repository_set_workdir(_repository, benchmark_tree().c_str(), /*update_gitlink=*/0));
  }
  ~Libgit2Repository() {
    git_repository_free(_repository);
    git_libgit2_shutdown();
    std::error_code ignored;
    std::filesystem::remove_all(_directory, ignored);
  }
  Libgit2Repository(const Libgit2Repository&) = delete;
  Libgit2Repository& operator=(const Libgit2Repository&) = delete;

  bool ignores(const std::string& path) const {
    int ignored = 0;
    check(git_ignore_path_is_ignored(&ignored, _repository, path.c_str()));
    return ignored != 0;
  }

 private:
  static void check(int result) {
    if (result < 0) throw std::runtime_error(git_error_last()->message);
  }

  std::filesystem::path _directory;
  git_repository* _repository = nullptr;
};

void Libgit2(benchmark::State& state) {
  static const Libgit2Repository repository;
  static bool warm = false;
  const auto ask = [&] {
    std::int64_t ignored = 0;
    for (const std::string& path : paths_of_tree()) ignored += repository.ignores(path) ? 1 : 0;
    return ignored;
  };
  if (!warm) ask();
  warm = true;
  run(state, ask);
}
BENCHMARK(Libgit2)->Iterations(1)->Unit(benchmark::kMillisecond);

void First(benchmark::State& state) {
  std::int64_t indexed = 0;
  for (auto _ : state) {
    auto scope = std::make_unique<IndexScope>(benchmark_tree());
    benchmark::DoNotOptimize(indexed = ask_all(*scope, paths_of_tree()));
    state.PauseTiming();
    scope.reset();
    state.ResumeTiming();
  }
  state.counters["yes"] = static_cast<double>(indexed);
}
BENCHMARK(First)->Unit(benchmark::kMillisecond);

void BareWalk(benchmark::State& state) {
  run(state, [] {
    std::int64_t files = 0;
    bare_walk(
        open_benchmark_tree(), [&](std::string_view) { ++files; },
        [](std::string_view) { return [] {}; });
    return files;
  });
}
BENCHMARK(BareWalk)->Unit(benchmark::kMillisecond);

void WalkAndAsk(benchmark::State& state) {
  run(state, [] {
    const IndexScope scope(benchmark_tree());
    std::int64_t indexed = 0;
    for (const std::string& path : scope.walk()) indexed += scope.is_indexable(path) ? 1 : 0;
    return indexed;
  });
}
BENCHMARK(WalkAndAsk)->Unit(benchmark::kMillisecond);

/// The counter `best` is that of the best run: with other work on the machine, the mean says
/// more about that work than about the scope.
void Threads(benchmark::State& state) {
  constexpr int PASSES = 2;
  const auto count = static_cast<std::size_t>(state.range(0));
  const bool own = state.range(1) != 0;
  static const std::unique_ptr<IndexScope> another_scope = make_warm_scope();
  double best = 0;
  for (auto _ : state) {
    std::latch ready(static_cast<std::ptrdiff_t>(count) + 1);
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < count; ++i) {
      threads.emplace_back([&, &scope = own && i % 2 != 0 ? *another_scope : warm_scope()] {
        ready.arrive_and_wait();
        for (int pass = 0; pass < PASSES; ++pass) {
          benchmark::DoNotOptimize(ask_all(scope, paths_of_tree()));
        }
      });
    }
    // Not behind the wait: this thread may be the last to go on.
    const auto begin = std::chrono::steady_clock::now();
    ready.arrive_and_wait();
    threads.clear();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(time.count());
    best =
        std::max(best, static_cast<double>(paths_of_tree().size() * count) * PASSES / time.count());
  }
  state.counters["best"] = best;
}
BENCHMARK(Threads)
    ->ArgNames({"threads", "own"})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({2, 1})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void Indexed(benchmark::State& state) {
  const IndexScope& scope = warm_scope();
  std::vector<std::string> indexed;
  for (const std::string& path : paths_of_tree()) {
    if (scope.is_indexable(path)) indexed.push_back(path);
  }
  const std::size_t before = allocations;
  for (auto _ : state) benchmark::DoNotOptimize(ask_all(scope, indexed));
  const auto decisions =
      static_cast<double>(state.iterations()) * static_cast<double>(indexed.size());
  state.counters["allocations"] = static_cast<double>(allocations - before) / decisions;
  state.counters["decisions"] = static_cast<double>(indexed.size());
}
BENCHMARK(Indexed)->Unit(benchmark::kMillisecond);

/// A tree in memory with 10,000 ignore files.
class TreeOfRules {
 public:
  TreeOfRules() {
    std::string name = "/dev/shm/scope_benchmark.XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    root = name;
    for (int number = 0; number < 10'000; ++number) {
      const std::filesystem::path directory = root / std::to_string(number);
      std::filesystem::create_directory(directory);
      std::ofstream(directory / ".gitignore") << "*.o\n*.log\n/build/\n";
    }
  }
  ~TreeOfRules() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  TreeOfRules(const TreeOfRules&) = delete;
  TreeOfRules& operator=(const TreeOfRules&) = delete;

  std::filesystem::path root;
};

/// Makes so many directories known; the first 10,000 of a tree of rules have an ignore file.
void ask_about(const IndexScope& scope, std::int64_t directories) {
  for (std::int64_t number = 0; number < directories; ++number) {
    benchmark::DoNotOptimize(scope.is_indexable(std::to_string(number) + "/a.py"));
  }
}

void Refresh(benchmark::State& state) {
  static const TreeOfRules tree;
  IndexScope scope(state.range(1) != 0 ? tree.root : "/nowhere");
  for (auto _ : state) {
    state.PauseTiming();
    ask_about(scope, state.range(0));
    state.ResumeTiming();
    scope.refresh();
  }
}
BENCHMARK(Refresh)
    ->ArgNames({"directories", "rules"})
    ->Args({0, 0})
    ->Args({100'000, 0})
    ->Args({100'000, 1})
    ->Iterations(5)
    ->Unit(benchmark::kMicrosecond);

void FirstAfter(benchmark::State& state) {
  const bool refreshed = state.range(1) != 0;
  IndexScope scope("/nowhere");
  const std::string path = std::to_string(state.range(0) - 1) + "/a.py";
  for (auto _ : state) {
    state.PauseTiming();
    ask_about(scope, state.range(0));
    if (refreshed) scope.refresh();
    state.ResumeTiming();
    benchmark::DoNotOptimize(scope.is_indexable(path));
  }
}
BENCHMARK(FirstAfter)
    ->ArgNames({"directories", "refreshed"})
    ->Args({1, 1})
    ->Args({100'000, 0})
    ->Args({100'000, 1})
    ->Iterations(5)
    ->Unit(benchmark::kMicrosecond);

void IsTestPath(benchmark::State& state) {
  run(state, [] {
    std::int64_t tests = 0;
    for (const std::string& path : paths_of_tree()) {
      tests += path_filter::is_test_path(path) ? 1 : 0;
    }
    return tests;
  });
}
BENCHMARK(IsTestPath)->Unit(benchmark::kMillisecond);

void LanguageAndLockfile(benchmark::State& state) {
  // As is_indexable has them: the end of a path.
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> made;
    for (const std::string& path : paths_of_tree()) {
      made.push_back(std::string_view(path).substr(path.rfind('/') + 1));
    }
    return made;
  }();
  run(state, [] {
    std::int64_t kept = 0;
    for (const std::string_view name : names) {
      const bool is_known = language_registry::detect_language(name).has_value();
      kept += is_known && !language_registry::is_lockfile(name) ? 1 : 0;
    }
    return kept;
  });
}
BENCHMARK(LanguageAndLockfile)->Unit(benchmark::kMillisecond);

}  // namespace

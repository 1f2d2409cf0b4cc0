// What the SQL function costs, and which form of the filter is the faster one.
//
//   Call      A scan of 5,000 files: an empty function, and ours with a warm memo.
//   Edges     350,000 edges joined with 5,000 files, in three databases: 0 has no index on
//             the edges, 1 has one on their files, and 2 has been analysed too. With `cold`,
//             the memo knows none of the paths before each run.
//   EdgesCpp  The same question in C++, without SQLite.
//   Million   A scan of a million files, which are many more than the memo holds.
//   Repeated  A scan of so many files, over and over: the memo holds 50,000, and of 100,000 in
//             turn it never has the next. With the empty function, what SQLite takes itself.
//   Threads   The same query on a connection of its own for each thread; with the empty
//             function, what the machine has to give. The counter `best` is the rows a second
//             of the best run.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <latch>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "utils/path_filter/test_code/test_code.h"
#include "utils/path_filter/test_code/test_code_sql.h"

namespace {

constexpr std::size_t FEW_FILES = 5'000;
constexpr std::size_t MANY_FILES = 1'000'000;
constexpr std::size_t EDGES = 350'000;

/// Paths as a large repository has them; about a third is test code.
std::vector<std::string> make_paths(std::size_t count) {
  static constexpr const char* NAMES[] = {"user_service.py", "UserServiceTest.java", "index.ts",
                                          "index.test.ts",   "parser_internal.cpp",  "README.md"};
  std::vector<std::string> paths;
  paths.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    paths.push_back("packages/module_" + std::to_string(i / 40) + (i % 7 == 0 ? "/tests" : "/src") +
                    "/part_" + std::to_string(i % 40) + "/" + NAMES[i % std::size(NAMES)]);
  }
  return paths;
}

/// The file that each edge leads to, by identifier: 1 is the first.
std::vector<std::int64_t> make_edges() {
  std::mt19937 random(1);  // NOLINT: the same edges each time
  std::uniform_int_distribution<std::int64_t> file(1, FEW_FILES);
  std::vector<std::int64_t> edges(EDGES);
  for (std::int64_t& edge : edges) edge = file(random);
  return edges;
}

void check(sqlite3* connection, int result) {
  if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE) {
    throw std::runtime_error(sqlite3_errmsg(connection));
  }
}

/// A database in memory with the tables `files` and `edges`.
class Database {
 public:
  Database(const std::vector<std::string>& paths, const std::vector<std::int64_t>& edges) {
    sqlite3* connection = nullptr;
    sqlite3_open(":memory:", &connection);
    _connection.reset(connection);
    path_filter::register_path_functions(get());
    check(
        get(),
        sqlite3_create_function(
            get(), "empty", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
            [](sqlite3_context* context, int, sqlite3_value**) { sqlite3_result_int(context, 0); },
            nullptr, nullptr));
    execute("BEGIN");
    execute("CREATE TABLE files (id INTEGER PRIMARY KEY, path TEXT NOT NULL)");
    execute("CREATE TABLE edges (id INTEGER PRIMARY KEY, target INTEGER NOT NULL)");
    Statement add_file = prepare("INSERT INTO files (path) VALUES (?)");
    for (const std::string& path : paths) {
      sqlite3_bind_text(add_file.get(), 1, path.data(), static_cast<int>(path.size()),
                        SQLITE_STATIC);
      check(get(), sqlite3_step(add_file.get()));
      sqlite3_reset(add_file.get());
    }
    Statement add_edge = prepare("INSERT INTO edges (target) VALUES (?)");
    for (const std::int64_t edge : edges) {
      sqlite3_bind_int64(add_edge.get(), 1, edge);
      check(get(), sqlite3_step(add_edge.get()));
      sqlite3_reset(add_edge.get());
    }
    execute("COMMIT");
  }

  void execute(const char* sql) const {
    check(get(), sqlite3_exec(get(), sql, nullptr, nullptr, nullptr));
  }

  /// The one number that a query gives.
  std::int64_t operator()(const std::string& sql) const {
    const Statement query = prepare(sql);
    check(get(), sqlite3_step(query.get()));
    return sqlite3_column_int64(query.get(), 0);
  }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  sqlite3* get() const { return _connection.get(); }

  Statement prepare(const std::string& sql) const {
    sqlite3_stmt* statement = nullptr;
    check(get(), sqlite3_prepare_v2(get(), sql.c_str(), -1, &statement, nullptr));
    return Statement(statement);
  }

  std::unique_ptr<sqlite3, Close> _connection;
};

const Database& many_files() {
  static const Database database(make_paths(MANY_FILES), {});
  return database;
}

const Database& edges_and_files(std::int64_t schema) {
  static const std::vector<Database> databases = [] {
    std::vector<Database> made;
    for (const char* extra : {"", "CREATE INDEX by_target ON edges (target)",
                              "CREATE INDEX by_target ON edges (target); ANALYZE"}) {
      made.emplace_back(make_paths(FEW_FILES), make_edges()).execute(extra);
    }
    return made;
  }();
  return databases.at(static_cast<std::size_t>(schema));
}

void make_memo_cold() {
  for (std::size_t i = 0; i < path_filter::internal::SQL_PATH_CACHE_SIZE; ++i) {
    path_filter::_sql_is_test_path("other/" + std::to_string(i));
  }
}

/// Runs a query over and over. `rows` is how many rows it looks at.
void run(benchmark::State& state, const Database& database, const std::string& sql, bool cold,
         std::size_t rows) {
  std::int64_t answer = database(sql);
  for (auto _ : state) {
    if (cold) {
      state.PauseTiming();
      make_memo_cold();
      state.ResumeTiming();
    }
    benchmark::DoNotOptimize(answer = database(sql));
  }
  state.counters["answer"] = static_cast<double>(answer);
  state.SetItemsProcessed(static_cast<std::int64_t>(rows) * state.iterations());
}

std::string condition(bool exclude, bool by_id) {
  return path_filter::sql_test_path_filter({.exclude = exclude, .via = by_id ? "id" : "path"}).sql;
}

void Call(benchmark::State& state, const char* function) {
  run(state, edges_and_files(0), "SELECT sum(" + std::string(function) + "(path)) FROM files",
      /*cold=*/false, FEW_FILES);
}
BENCHMARK_CAPTURE(Call, empty, "empty");
BENCHMARK_CAPTURE(Call, warm, "brelo_is_test_path");

void Edges(benchmark::State& state) {
  const bool exclude = state.range(1) != 0;
  const bool cold = state.range(2) != 0;
  const bool by_id = state.range(3) != 0;
  run(state, edges_and_files(state.range(0)),
      "SELECT count(*) FROM edges e JOIN files f ON f.id = e.target WHERE " +
          condition(exclude, by_id),
      cold, EDGES);
}
BENCHMARK(Edges)
    ->ArgNames({"database", "exclude", "cold", "by_id"})
    ->ArgsProduct({{0, 1, 2}, {0, 1}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

void EdgesCpp(benchmark::State& state) {
  const std::vector<std::string> paths = make_paths(FEW_FILES);
  const std::vector<std::int64_t> edges = make_edges();
  std::int64_t answer = 0;
  for (auto _ : state) {
    answer = 0;
    std::unordered_map<std::int64_t, bool> is_test;
    std::int64_t id = 0;
    for (const std::string& path : paths) is_test.emplace(++id, path_filter::is_test_path(path));
    for (const std::int64_t edge : edges) {
      const auto found = is_test.find(edge);
      if (found != is_test.end() && !found->second) ++answer;
    }
    benchmark::DoNotOptimize(answer);
  }
  state.counters["answer"] = static_cast<double>(answer);
  state.SetItemsProcessed(static_cast<std::int64_t>(EDGES) * state.iterations());
}
BENCHMARK(EdgesCpp)->Unit(benchmark::kMillisecond);

void Million(benchmark::State& state) {
  run(state, many_files(),
      "SELECT count(*) FROM files f WHERE " + condition(/*exclude=*/true, state.range(0) != 0),
      /*cold=*/false, MANY_FILES);
}
BENCHMARK(Million)->ArgName("by_id")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

const Database& files(std::size_t count) {
  static std::map<std::size_t, Database> databases;
  return databases.try_emplace(count, make_paths(count), std::vector<std::int64_t>()).first->second;
}

void Repeated(benchmark::State& state, const char* function) {
  const auto count = static_cast<std::size_t>(state.range(0));
  run(state, files(count), "SELECT sum(" + std::string(function) + "(path)) FROM files",
      /*cold=*/false, count);
}
BENCHMARK_CAPTURE(Repeated, empty, "empty")->Arg(50'000)->Arg(100'000);
BENCHMARK_CAPTURE(Repeated, ours, "brelo_is_test_path")->Arg(50'000)->Arg(100'000);

void Threads(benchmark::State& state, const std::string& function) {
  constexpr int PASSES = 4;
  constexpr std::size_t ROWS = 50'000;
  static const std::vector<Database> databases = [] {
    std::vector<Database> made;
    for (int i = 0; i < 2; ++i) made.emplace_back(make_paths(ROWS), std::vector<std::int64_t>());
    return made;
  }();
  const auto count = static_cast<std::size_t>(state.range(0));
  const auto ask = [&](const Database& database) {
    return database("SELECT sum(" + function + "(path)) FROM files");
  };
  ask(databases[0]);
  double best = 0;
  for (auto _ : state) {
    std::latch ready(static_cast<std::ptrdiff_t>(count) + 1);
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < count; ++i) {
      threads.emplace_back([&, &database = databases[i]] {
        ready.arrive_and_wait();
        for (int pass = 0; pass < PASSES; ++pass) benchmark::DoNotOptimize(ask(database));
      });
    }
    // Not behind the wait: this thread may be the last to go on.
    const auto begin = std::chrono::steady_clock::now();
    ready.arrive_and_wait();
    threads.clear();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(time.count());
    best = std::max(best, static_cast<double>(ROWS * count) * PASSES / time.count());
  }
  state.counters["best"] = best;
}
BENCHMARK_CAPTURE(Threads, empty, "empty")->Arg(1)->Arg(2)->UseManualTime();
BENCHMARK_CAPTURE(Threads, ours, "brelo_is_test_path")->Arg(1)->Arg(2)->UseManualTime();

void MillionCpp(benchmark::State& state) {
  const std::vector<std::string> paths = make_paths(MANY_FILES);
  std::int64_t answer = 0;
  for (auto _ : state) {
    answer = 0;
    for (const std::string& path : paths) answer += path_filter::is_test_path(path) ? 0 : 1;
    benchmark::DoNotOptimize(answer);
  }
  state.counters["answer"] = static_cast<double>(answer);
  state.SetItemsProcessed(static_cast<std::int64_t>(MANY_FILES) * state.iterations());
}
BENCHMARK(MillionCpp)->Unit(benchmark::kMillisecond);

}  // namespace

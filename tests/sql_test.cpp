// The SQL function and the filters on it, in databases of the real SQLite.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/test_code/answer_memo.h"
#include "utils/path_filter/test_code/test_code_sql.h"

namespace path_filter {
namespace {

using test_registry::classifications;
using Texts = std::vector<std::string>;

using Database = std::unique_ptr<sqlite3, decltype([](sqlite3* open) { sqlite3_close(open); })>;

Database open_database(bool with_function = true) {
  sqlite3* connection = nullptr;
  EXPECT_EQ(sqlite3_open(":memory:", &connection), SQLITE_OK);
  if (with_function) register_path_functions(connection);
  return Database(connection);
}

/// The last column of a statement's rows. Of one that fails, SQLite's message.
Texts run(const Database& db, const std::string& sql) {
  Texts rows;
  const auto add_row = [](void* out, int count, char** values, char**) {
    static_cast<Texts*>(out)->emplace_back(values[count - 1]);
    return 0;
  };
  if (sqlite3_exec(db.get(), sql.c_str(), add_row, &rows, nullptr) == SQLITE_OK) return rows;
  return {sqlite3_errmsg(db.get())};
}

/// Four files, two of them tests, and edges to them and to a file that is not there.
constexpr const char* SCHEMA = R"(
    CREATE TABLE files (id INTEGER PRIMARY KEY, path TEXT);
    INSERT INTO files VALUES (1, 'src/a.py'), (2, 'src/test_a.py'), (3, 'Tests\b.java'),
                             (4, 'tests/c.json');
    CREATE TABLE edges (target INTEGER);
    INSERT INTO edges VALUES (1), (2), (2), (3), (4), (99);)";

bool asks_the_registry(std::optional<std::string_view> path) {
  const int before = classifications;
  _sql_is_test_path(path);
  return classifications != before;
}

TEST(SqlFunction, AnswersEveryKindOfArgumentAndRemembersNoFailure) {
  using Row = std::pair<std::string, const char*>;
  constexpr const char* NUMBER = "brelo_is_test_path: the argument is a number, not a path";
  for (const char* encoding : {"UTF-8", "UTF-16"}) {
    const Database db = open_database();
    run(db, std::string("PRAGMA encoding = '") + encoding + "'; CREATE TABLE t (x)");
    // Bytes that are not UTF-8, and zero bytes, are part of the path.
    for (const auto& [argument, answer] :
         {Row{"NULL", "0"}, Row{"''", "0"}, Row{"x''", "0"}, Row{"'src/a.py'", "0"},
          Row{"'tests/é.py'", "1"}, Row{"'Tests\\Foo.java'", "1"}, Row{"'docs/tests/a.md'", "0"},
          Row{"x'74657374732f612e7079'", "1"}, Row{"x'74657374732fff2e7079'", "1"},
          Row{"'tests/a.py' || char(0)", "0"}, Row{"'a.py' || char(0) || '/tests/a.py'", "1"},
          Row{"'explode.py'", "registry exploded"}, Row{"'memory.py'", "out of memory"},
          Row{"1.5", NUMBER}}) {
      run(db, "DELETE FROM t; INSERT INTO t VALUES (" + argument + ")");
      EXPECT_EQ(run(db, "SELECT brelo_is_test_path(x) FROM t"), Texts{answer})
          << argument << encoding;
    }
  }
}

TEST(Memo, EvictsExactlyTheLeastRecentlyUsed) {
  const auto path = [](std::size_t i) { return "memo/" + std::to_string(i) + ".py"; };
  for (std::size_t i = 0; i < internal::SQL_PATH_CACHE_SIZE; ++i)
    ASSERT_TRUE(asks_the_registry(path(i)));
  EXPECT_FALSE(asks_the_registry(path(0)));  // which makes 1 the least recently used
  EXPECT_TRUE(asks_the_registry("memo/new.py"));
  EXPECT_FALSE(asks_the_registry(path(0)));
  EXPECT_FALSE(asks_the_registry(path(2)));
  EXPECT_TRUE(asks_the_registry(path(1)));  // which evicts 3
  EXPECT_TRUE(asks_the_registry(path(3)));  // which evicts 4

  _sql_is_test_path(std::nullopt);  // which evicts 5: NULL takes a place like any text
  _sql_is_test_path("");            // and so does "", another one: 6
  _sql_is_test_path(std::nullopt);
  EXPECT_THROW(_sql_is_test_path("explode.py"), std::runtime_error);  // and this does not
  for (std::size_t i = 7; i < internal::SQL_PATH_CACHE_SIZE; ++i)
    ASSERT_FALSE(asks_the_registry(path(i))) << i;
  for (const std::size_t evicted : {6u, 5u, 4u}) EXPECT_TRUE(asks_the_registry(path(evicted)));

  const std::string longest = "tests/" + std::string(4087, 'x') + ".py";
  EXPECT_TRUE(asks_the_registry(longest) && !asks_the_registry(longest));
  EXPECT_TRUE(asks_the_registry("/" + longest) && asks_the_registry("/" + longest));
}

/// Against a list in the order of use; the texts end on either side of what an entry has.
TEST(Memo, IsInTheOrderOfUseWhateverItIsAsked) {
  internal::AnswerMemo<4> memo;
  std::vector<std::size_t> in_order;  // the last used first
  std::mt19937 random(1);             // NOLINT: the same each time
  const std::size_t sizes[] = {0, 1, 7, 8, 9, 111, 112, 113, 500};
  for (int question = 0; question < 20000; ++question) {
    const std::size_t number = random() % 10;
    const std::string text(number < 9 ? sizes[number] : 0, 'x');
    bool asked = false;
    const auto ask = [&] { return asked = true, number % 2 == 1; };
    ASSERT_EQ(memo.answer(number < 9 ? std::optional(text) : std::nullopt, ask), number % 2 == 1);
    ASSERT_EQ(asked, std::ranges::count(in_order, number) == 0) << question;
    if (std::erase(in_order, number) == 0 && in_order.size() == 4) in_order.pop_back();
    in_order.insert(in_order.begin(), number);
  }
  // A hit takes no lock.
  memo.answer("known", [] { return true; });
  memo.lock();
  auto hit =
      std::async(std::launch::async, [&] { return memo.answer("known", [] { return false; }); });
  EXPECT_EQ(hit.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  memo.unlock();
  EXPECT_TRUE(hit.get());
}

TEST(Registration, ReplacesTheEarlierOneUnlessAStatementRuns) {
  const Database db = open_database();
  register_path_functions(db.get());
  sqlite3_stmt* running = nullptr;
  sqlite3_prepare_v2(db.get(), "VALUES (1), (2)", -1, &running, nullptr);
  ASSERT_EQ(sqlite3_step(running), SQLITE_ROW);
  EXPECT_THROW(register_path_functions(db.get()), std::runtime_error);
  sqlite3_finalize(running);
  EXPECT_THROW(register_path_functions(nullptr), std::invalid_argument);
}

// `exclude` is always given.
static_assert(!MadeFrom<SqlTestPathFilterOptions>);
static_assert(!MadeFrom<internal::RequiredFlag, int>);
static_assert(!MadeFrom<internal::RequiredFlag, const char*>);

TEST(Filter, Texts) {
  const std::string files = "IN (SELECT id FROM files WHERE brelo_is_test_path(path))";
  for (const bool exclude : {true, false}) {
    const std::string negate = exclude ? "NOT " : "";
    for (const char* via : {"path", "ID", ""})
      EXPECT_EQ(sql_test_path_filter("e", {.exclude = exclude, .via = via}).sql,
                negate + "brelo_is_test_path(e.path)");
    const auto [sql, params] = sql_test_path_filter({.exclude = exclude, .via = "id"});
    EXPECT_EQ(sql, "f.id " + negate + files);
    EXPECT_EQ(params, Texts{});
  }
}

TEST(Filter, SelectsRowsInBothFormsAndByAnIndex) {
  const Database db = open_database();
  // As a careful host has it: only functions that are declared harmless run in a schema.
  run(db, "PRAGMA trusted_schema = OFF");
  run(db, SCHEMA);
  const auto edges = [&](const char* join, SqlTestPathFilterOptions options) {
    return run(db, "SELECT e.target FROM edges e " + std::string(join) +
                       " JOIN files f ON f.id = e.target WHERE " +
                       sql_test_path_filter(options).sql + " ORDER BY 1");
  };
  for (const char* via : {"path", "id"}) {
    EXPECT_EQ(edges("", {.exclude = false, .via = via}), (Texts{"2", "2", "3"}));
    EXPECT_EQ(edges("", {.exclude = true, .via = via}), (Texts{"1", "4"}));
  }
  EXPECT_EQ(edges("LEFT", {.exclude = true}), (Texts{"1", "4", "99"}));
  EXPECT_EQ(edges("LEFT", {.exclude = false}), (Texts{"2", "2", "3"}));

  run(db, "CREATE INDEX by_test ON files (brelo_is_test_path(path))");
  const std::string query = "SELECT id FROM files WHERE brelo_is_test_path(path) = 1 ORDER BY id";
  EXPECT_NE(run(db, "EXPLAIN QUERY PLAN " + query).at(0).find("by_test"), std::string::npos);
  EXPECT_EQ(run(db, query), (Texts{"2", "3"}));
}

void on_threads(const std::function<void(int)>& work) {
  std::vector<std::jthread> threads;
  for (int number = 0; number < 4; ++number) threads.emplace_back(work, number);
}

TEST(Threads, ManyConnectionsShareTheMemo) {
  // The threads ask for the same paths at the same time, and each for some of its own: of
  // both together there are more than the memo holds.
  const std::string numbers =
      "WITH RECURSIVE n(i) AS (VALUES (0) UNION ALL SELECT i + 1 FROM n LIMIT 30000)";
  on_threads([&](int number) {
    const Database db = open_database();
    for (const std::string& prefix : {std::string(), std::to_string(number), std::string()}) {
      const std::string path = "'" + prefix + "d/' || i || iif(i % 3, '/a.py', '/test_a.py')";
      EXPECT_EQ(run(db, numbers + "SELECT sum(brelo_is_test_path(" + path + ")) FROM n"),
                Texts{"10000"});
    }
  });
}

TEST(Extension, AnswersWithItsOwnRegistryWhoeverLoadsItAtOnce) {
  const int before = classifications;
  on_threads([](int number) {
    const Database db = open_database(/*with_function=*/false);
    sqlite3_db_config(db.get(), SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
    const char* entry_point = number % 2 == 0 ? nullptr : "sqlite3_pathfiltersqlite_init";
    sqlite3_load_extension(db.get(), PATH_FILTER_SQLITE_EXTENSION_FILE, entry_point, nullptr);
    EXPECT_EQ(run(db, "SELECT brelo_is_test_path('tests/explode.py')"), Texts{"1"});
  });
  EXPECT_EQ(classifications, before);
}

}  // namespace
}  // namespace path_filter

// The SQL function and the filters on it, in databases of the real SQLite.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support.h"
#include "utils/path_filter/test_code_sql.h"

namespace path_filter {
namespace {

using test_registry::classifications;
using Texts = std::vector<std::string>;

/// A connection with the function registered.
class Database {
 public:
  explicit Database(const std::string& file = ":memory:", bool with_function = true) {
    sqlite3* connection = nullptr;
    const int result = sqlite3_open(file.c_str(), &connection);
    _connection.reset(connection);
    if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(connection));
    sqlite3_busy_timeout(connection, 10'000);
    if (with_function) register_path_functions(connection);
  }

  sqlite3* get() const { return _connection.get(); }

  /// The rows of a statement, each as its columns joined by "|"; NULL as in the text.
  /// Throws std::runtime_error with SQLite's message.
  Texts operator()(const std::string& sql) const {
    Texts rows;
    const auto add_row = [](void* out, int count, char** values, char**) {
      std::string row;
      for (int i = 0; i < count; ++i) {
        row += std::string(i > 0 ? "|" : "") + (values[i] != nullptr ? values[i] : "NULL");
      }
      static_cast<Texts*>(out)->push_back(row);
      return 0;
    };
    if (sqlite3_exec(get(), sql.c_str(), add_row, &rows, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(get()));
    }
    return rows;
  }

  /// The message a statement fails with; empty when it succeeds.
  std::string error(const std::string& sql) const {
    try {
      (*this)(sql);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
  };
  std::unique_ptr<sqlite3, Close> _connection;
};

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

TEST(SqlFunction, AnswersEveryKindOfArgument) {
  const Database db;
  const struct {
    const char* argument;
    const char* answer;
  } cases[] = {
      {"NULL", "0"},
      {"''", "0"},
      {"x''", "0"},
      {"'src/test_a.py'", "1"},
      {"'src/a.py'", "0"},
      {"'Tests\\Foo.java'", "1"},
      {"'docs/tests/guide.md'", "0"},
      {"CAST('src/test_blob.py' AS BLOB)", "1"},
      // Bytes that are not UTF-8, and zero bytes, are part of the path.
      {"x'74657374732fff2e7079'", "1"},                // tests/<ff>.py
      {"CAST(x'74657374732fff2e7079' AS TEXT)", "1"},  // the same as text
      {"'tests/a.py' || char(0)", "0"},
      {"'a.py' || char(0) || '/tests/a.py'", "1"},
  };
  for (const auto& [argument, answer] : cases) {
    EXPECT_EQ(db(std::string("SELECT brelo_is_test_path(") + argument + ")"), Texts{answer})
        << argument;
  }
  for (const char* number : {"1", "1.5"}) {
    EXPECT_EQ(db.error(std::string("SELECT brelo_is_test_path(") + number + ")"),
              "brelo_is_test_path: the argument is a number, not a path");
  }
}

TEST(SqlFunction, ReadsTextAndBlobsOfAUtf16Database) {
  const Database db;
  db(R"(PRAGMA encoding = 'UTF-16';
        CREATE TABLE files (path);
        INSERT INTO files VALUES ('tests/é.py'), ('src/é.py'), (CAST('x' AS TEXT)),
                                 (x'74657374732f612e7079');)");
  EXPECT_EQ(db("SELECT brelo_is_test_path(path) FROM files"), (Texts{"1", "0", "0", "1"}));
}

TEST(SqlFunction, FailureIsAnErrorOfTheStatementAndIsNotRemembered) {
  const Database db;
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(db.error("SELECT brelo_is_test_path('src/explode.py')"), "registry exploded");
    EXPECT_EQ(db.error("SELECT brelo_is_test_path('src/memory.py')"), "out of memory");
  }
  EXPECT_EQ(db("SELECT brelo_is_test_path('src/test_a.py')"), Texts{"1"});
  EXPECT_FALSE(asks_the_registry("src/test_a.py"));
}

TEST(Memo, EvictsExactlyTheLeastRecentlyUsed) {
  const auto path = [](std::size_t i) { return "memo/" + std::to_string(i) + ".py"; };
  for (std::size_t i = 0; i < internal::SQL_PATH_CACHE_SIZE; ++i) {
    ASSERT_TRUE(asks_the_registry(path(i)));
  }
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
  for (std::size_t i = 7; i < internal::SQL_PATH_CACHE_SIZE; ++i) {
    ASSERT_FALSE(asks_the_registry(path(i))) << i;
  }
  for (const std::size_t evicted : {6u, 5u, 4u}) EXPECT_TRUE(asks_the_registry(path(evicted)));
}

TEST(Registration, ReplacesTheEarlierOneUnlessAStatementRuns) {
  const Database db;
  sqlite3_create_function(
      db.get(), "brelo_is_test_path", 1, SQLITE_UTF8, nullptr,
      [](sqlite3_context* context, int, sqlite3_value**) {
        sqlite3_result_text(context, "earlier", -1, SQLITE_STATIC);
      },
      nullptr, nullptr);
  register_path_functions(db.get());
  register_path_functions(db.get());
  EXPECT_EQ(db("SELECT brelo_is_test_path('test_a.py')"), Texts{"1"});

  sqlite3_stmt* running = nullptr;
  sqlite3_prepare_v2(db.get(), "VALUES (1), (2)", -1, &running, nullptr);
  ASSERT_EQ(sqlite3_step(running), SQLITE_ROW);
  try {
    register_path_functions(db.get());
    ADD_FAILURE() << "SQLite refuses";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "unable to delete/modify user-function due to active statements");
  }
  sqlite3_finalize(running);

  EXPECT_THROW(register_path_functions(nullptr), std::invalid_argument);
}

// clang-format off
// The options are given by name and `exclude` is always given. What is negated must not compile.
template <typename Options>
constexpr bool options_are_safe =
    requires { Options{.exclude = true, .via = "id"}; } &&
    !requires { Options{}; } &&
    !requires { Options{.via = "id"}; } &&
    !requires { Options{.exclude = "id"}; } &&
    !requires { Options{.exclude = 1}; } &&
    !requires { Options{true}; } &&
    !requires { Options{{}, true, "id"}; };
// clang-format on
static_assert(options_are_safe<SqlTestPathFilterOptions>);

TEST(Filter, Texts) {
  const struct {
    SqlTestPathFilter filter;
    const char* sql;
  } cases[] = {
      {sql_test_path_filter({.exclude = false}), "brelo_is_test_path(f.path)"},
      {sql_test_path_filter({.exclude = true}), "NOT brelo_is_test_path(f.path)"},
      {sql_test_path_filter({.exclude = false, .via = "id"}),
       "f.id IN (SELECT id FROM files WHERE brelo_is_test_path(path))"},
      {sql_test_path_filter("e", {.exclude = true, .via = "id"}),
       "e.id NOT IN (SELECT id FROM files WHERE brelo_is_test_path(path))"},
      {sql_test_path_filter("e", {.exclude = true, .via = "ID"}), "NOT brelo_is_test_path(e.path)"},
      {sql_test_path_filter("e", {.exclude = false, .via = ""}), "brelo_is_test_path(e.path)"},
  };
  for (const auto& [filter, sql] : cases) {
    EXPECT_EQ(filter.sql, sql);
    EXPECT_EQ(filter.params, Texts{});
  }
}

TEST(Filter, BothFormsSelectTheSameRows) {
  const Database db;
  db(SCHEMA);
  for (const auto& [exclude, ids] : {std::pair(false, Texts{"2", "2", "3"}), {true, {"1", "4"}}}) {
    for (const char* via : {"path", "id"}) {
      const auto [condition, params] = sql_test_path_filter({.exclude = exclude, .via = via});
      EXPECT_EQ(db("SELECT f.id FROM edges e JOIN files f ON f.id = e.target WHERE " + condition +
                   " ORDER BY 1"),
                ids)
          << condition;
    }
  }
}

TEST(Filter, UnmatchedRowsOfALeftJoinAreNotTestCode) {
  const Database db;
  db(SCHEMA);
  const std::string query =
      "SELECT e.target, f.path FROM edges e LEFT JOIN files f ON f.id = e.target WHERE ";
  EXPECT_EQ(db(query + sql_test_path_filter({.exclude = true}).sql),
            (Texts{"1|src/a.py", "4|tests/c.json", "99|NULL"}));
  EXPECT_EQ(db(query + sql_test_path_filter({.exclude = false}).sql),
            (Texts{"2|src/test_a.py", "2|src/test_a.py", "3|Tests\\b.java"}));
}

TEST(Schema, ExpressionIndexAnswersQueries) {
  const Database db;
  // As a careful host has it: only functions that are declared harmless run in a schema.
  db("PRAGMA trusted_schema = OFF");
  db(SCHEMA);
  db("CREATE INDEX by_test ON files (brelo_is_test_path(path))");
  const std::string query = "SELECT id FROM files WHERE brelo_is_test_path(path) = 1 ORDER BY id";
  EXPECT_NE(db("EXPLAIN QUERY PLAN " + query).at(0).find("by_test"), std::string::npos);
  db("INSERT INTO files VALUES (5, 'test/d.py'); UPDATE files SET path = 'b.py' WHERE id = 2");
  const int before = classifications;
  EXPECT_EQ(db(query), (Texts{"3", "5"}));
  EXPECT_EQ(classifications, before);  // the index knew

  EXPECT_EQ(db.error("INSERT INTO files VALUES (6, 'explode.py')"), "registry exploded");
  EXPECT_EQ(db("SELECT count(*) FROM files"), Texts{"5"});
  EXPECT_EQ(db("PRAGMA integrity_check"), Texts{"ok"});
}

TEST(Schema, ViewsAndTriggersCallTheFunction) {
  const Database db;
  db("PRAGMA trusted_schema = OFF");
  db(SCHEMA);
  db(R"(CREATE VIEW production AS SELECT path FROM files f WHERE NOT brelo_is_test_path(f.path);
        CREATE TABLE added_tests (path);
        CREATE TRIGGER note AFTER INSERT ON files WHEN brelo_is_test_path(new.path)
        BEGIN INSERT INTO added_tests VALUES (new.path); END;
        INSERT INTO files VALUES (5, 'src/d.py'), (6, 'src/d_test.py');)");
  EXPECT_EQ(db("SELECT * FROM production"), (Texts{"src/a.py", "tests/c.json", "src/d.py"}));
  EXPECT_EQ(db("SELECT * FROM added_tests"), Texts{"src/d_test.py"});
}

TEST(Threads, ManyConnectionsShareTheMemo) {
  const std::string file = testing::TempDir() + "path_filter_sql_test.db";
  std::filesystem::remove(file);
  {
    const Database db(file);
    db("CREATE TABLE files (id INTEGER PRIMARY KEY, path TEXT)");
    db(R"(WITH RECURSIVE n(i) AS (VALUES (0) UNION ALL SELECT i + 1 FROM n WHERE i < 29999)
          INSERT INTO files SELECT i, 'd/' || i || iif(i % 3, '/a.py', '/test_a.py') FROM n)");
  }
  // The threads ask for the same paths at the same time, and each for some of its own: of
  // both together there are more than the memo holds.
  std::vector<std::jthread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([number, &file] {
      const Database db(file);
      const std::string own = std::to_string(number) + "/";
      for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(db("SELECT sum(brelo_is_test_path(path)) FROM files"), Texts{"10000"});
        EXPECT_EQ(db("SELECT sum(brelo_is_test_path('" + own + "' || path)) FROM files"),
                  Texts{"10000"});
        EXPECT_EQ(db.error("SELECT brelo_is_test_path('explode.py')"), "registry exploded");
      }
    });
  }
  threads.clear();
  std::filesystem::remove(file);
}

#ifdef PATH_FILTER_SQLITE_EXTENSION_FILE
TEST(Extension, AnswersWithItsOwnRegistryAndStaysLoaded) {
  for (const char* entry_point : {static_cast<const char*>(nullptr), "sqlite3_extension_init",
                                  "sqlite3_pathfiltersqlite_init"}) {
    const Database db(":memory:", /*with_function=*/false);
    EXPECT_EQ(db.error("SELECT brelo_is_test_path('a')"), "no such function: brelo_is_test_path");
    sqlite3_db_config(db.get(), SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 1, nullptr);
    char* message = nullptr;
    ASSERT_EQ(
        sqlite3_load_extension(db.get(), PATH_FILTER_SQLITE_EXTENSION_FILE, entry_point, &message),
        SQLITE_OK)
        << message;
    const int before = classifications;
    EXPECT_EQ(db("SELECT brelo_is_test_path('src/tests/explode.py'), brelo_is_test_path(NULL)"),
              Texts{"1|0"});
    EXPECT_EQ(classifications, before);
    EXPECT_EQ(db.error("SELECT brelo_is_test_path(7)"),
              "brelo_is_test_path: the argument is a number, not a path");
  }
}
#endif

}  // namespace
}  // namespace path_filter

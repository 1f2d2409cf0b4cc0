// Test code inside SQLite: is_test_path as an SQL function, and the conditions by which
// a query keeps or drops test code.
//
//   path_filter::register_path_functions(connection);  // once for each connection
//
//   const auto [sql, params] = path_filter::sql_test_path_filter("f", {.exclude = true});
//   "SELECT f.path FROM files f WHERE " + sql  // ... WHERE NOT brelo_is_test_path(f.path)
//
// The SQL function gives the answers of is_test_path and nothing like it is written in
// SQL, so the database and the indexer never disagree about a path.

#ifndef UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_SQL_H_
#define UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_SQL_H_

#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "utils/path_filter/base/export.h"

struct sqlite3;

namespace path_filter {

/// The SQL name of the function.
inline constexpr std::string_view SQL_TEST_PATH_FN = "brelo_is_test_path";

/// Makes the function SQL_TEST_PATH_FN known to `connection`, which is open, until it is
/// closed. A second registration replaces the first.
///
/// In SQL the function takes one argument:
///   text      the path, of any bytes; 1 when it is test code, else 0
///   a blob    the same: the bytes of a file name that is not text
///   NULL      0, so that the unmatched rows of a LEFT JOIN are no test code
///   a number  an error of the statement: another column was meant
/// An exception of the language registry is an error of the statement too, and has its
/// message. The function is deterministic and harmless to SQLite, which allows it in
/// indexes, views and triggers. Every connection that uses such an object needs the
/// function, and an index keeps the answers of when its rows were written: REINDEX it
/// after a change of the registry.
///
/// Throws std::invalid_argument for a null connection, and std::runtime_error with
/// SQLite's message when SQLite refuses, as it does for a second registration while a
/// statement of the connection runs. Different connections may be registered, and may
/// run queries, on different threads.
PATH_FILTER_EXPORT void register_path_functions(sqlite3* connection);

/// A condition for a WHERE clause.
struct SqlTestPathFilter {
  std::string sql;
  /// The parameters to bind: always none. Here for call sites that join the parameters
  /// of several conditions.
  std::vector<std::string> params;
};

namespace internal {

/// The number of answers that are remembered.
inline constexpr std::size_t SQL_PATH_CACHE_SIZE = 65536;

/// The longest text, in bytes, whose answer is remembered: no path of a file is longer.
inline constexpr std::size_t SQL_LONGEST_REMEMBERED = 4096;

/// A member that has no default: its struct does not compile without it.
struct RequiredFlag {
  constexpr RequiredFlag(std::same_as<bool> auto flag) : value(flag) {}  // NOLINT: implicit
  bool value;
};

}  // namespace internal

/// What sql_test_path_filter is told by name.
struct SqlTestPathFilterOptions {
  /// Whether the condition holds for all but test code, instead of for test code.
  /// There is no default: every caller says which.
  internal::RequiredFlag exclude;
  /// "id" for the identifier form; everything else gives the path form.
  std::string_view via = "path";
};

/// The condition that holds for those rows of `alias` that are test code or, with
/// `exclude`, for those that are not:
///
///   sql_test_path_filter("e", {.exclude = false})
///       brelo_is_test_path(e.path)
///   sql_test_path_filter("e", {.exclude = true, .via = "id"})
///       e.id NOT IN (SELECT id FROM files WHERE brelo_is_test_path(path))
///
/// `alias` is a table alias of the caller's own query and is inserted as it is. The path
/// form serves any rows that have a `path`; where that is NULL they are no test code. The
/// identifier form serves aliases of the table `files` only.
///
/// Which form to use: the path form, unless the query looks for test code (`exclude` is
/// false) and has an index that leads from a file to the other rows. SQLite then begins
/// the identifier form at the test files. Measured on 350,000 edges joined with 5,000
/// files, with a warm memo and SQLite 3.40 (in the sources, benchmarks/sql_benchmark.cpp), the
/// identifier form takes this multiple of the path form's time:
///
///                                        exclude = false    exclude = true
///     no index on the edges' file               1.15               1.3
///     an index                                  0.06               1.3
///     an index, and after ANALYZE               1.05               1.15
///     no edges: a million rows of `files`                          1.5
///
/// A cold memo changes these by less than 0.1. The identifier form asks once for each file
/// instead of once for each row, but searching the list of those files costs SQLite more
/// for each row than a warm call does. When the registry is slow and there are many more
/// files than the memo holds, the identifier form bounds how often it is asked.
PATH_FILTER_EXPORT SqlTestPathFilter sql_test_path_filter(std::string_view alias,
                                                          SqlTestPathFilterOptions options);

/// The same for the alias "f".
PATH_FILTER_EXPORT SqlTestPathFilter sql_test_path_filter(SqlTestPathFilterOptions options);

/// What the SQL function answers for text, or for NULL when `path` is absent: false for
/// NULL and for "", else is_test_path(path).
///
/// The last SQL_PATH_CACHE_SIZE different arguments, NULL among them, are remembered with
/// their answers, in the order of use, for all connections and threads of the process and
/// until it ends. A text of more than SQL_LONGEST_REMEMBERED bytes, which is some other
/// column's, is answered each time and not remembered, so that no content of a database
/// makes the memory grow beyond some 280 MB. A remembered answer costs one hash lookup, and
/// no lock for a text of up to 112 bytes. Throws what the registry throws, and then remembers
/// nothing. Any thread may call it.
PATH_FILTER_EXPORT bool _sql_is_test_path(std::optional<std::string_view> path);

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_SQL_H_

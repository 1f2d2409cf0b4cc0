#include "utils/path_filter/test_code/test_code_sql.h"

#include <pthread.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "utils/path_filter/base/blocking.h"
#include "utils/path_filter/test_code/answer_memo.h"
#include "utils/path_filter/test_code/test_code.h"

// A loadable extension calls SQLite through the table that the program passes which loads
// it; sqlite3ext.h makes the calls below do so.
#ifdef PATH_FILTER_SQLITE_EXTENSION
#include <sqlite3ext.h>
SQLITE_EXTENSION_INIT3
#else
#include <sqlite3.h>
#endif

namespace path_filter {
namespace {

using Argument = std::optional<std::string_view>;
using Memo = internal::AnswerMemo<internal::SQL_PATH_CACHE_SIZE>;

/// The memo of the process. It is never destroyed: a thread may still run queries while
/// the process ends.
Memo& memo() {
  static Memo& the_memo = *new Memo;
  // A child that is forked while another thread is in the memo must find it free. A macro where no
  // process forks.
  static const int forks [[maybe_unused]] =
      pthread_atfork([] { the_memo.lock(); }, [] { the_memo.unlock(); }, [] { the_memo.unlock(); });
  return the_memo;
}

/// The path that SQLite passes. It is valid until SQLite is asked for `value` in another
/// form. Throws std::invalid_argument for a number.
Argument path_argument(sqlite3_value* value) {
  const void* bytes = nullptr;
  switch (sqlite3_value_type(value)) {
    case SQLITE_NULL:
      return std::nullopt;
    case SQLITE_TEXT:
      bytes = sqlite3_value_text(value);
      if (bytes == nullptr) throw std::bad_alloc();  // in the conversion from UTF-16
      break;
    case SQLITE_BLOB:
      // Not as text: in a database of UTF-16 that would convert the bytes.
      bytes = sqlite3_value_blob(value);
      break;
    default:
      throw std::invalid_argument(std::string(SQL_TEST_PATH_FN) +
                                  ": the argument is a number, not a path");
  }
  // The size is asked for last: it is that of the form which was asked for before.
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
  if (size == 0) return std::string_view();      // an empty blob has no address
  if (bytes == nullptr) throw std::bad_alloc();  // nor has a zeroblob without room
  return std::string_view(static_cast<const char*>(bytes), size);
}

/// A query over many rows returns to nobody until its end.
void interrupt_a_long_query() {
  thread_local unsigned calls = 0;
  if (++calls % 1024 != 0) return;
  const auto* hooks = internal::blocking_hooks.load(std::memory_order_acquire);
  if (hooks != nullptr) hooks->interrupts();
}

// Called by SQLite, which is C: no exception may leave it.
extern "C" void sql_function(sqlite3_context* context, int /*argument_count*/,
                             sqlite3_value** arguments) {
  try {
    interrupt_a_long_query();
    sqlite3_result_int(context, _sql_is_test_path(path_argument(arguments[0])) ? 1 : 0);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  } catch (const std::exception& error) {
    sqlite3_result_error(context, error.what(), -1);
  } catch (...) {
    sqlite3_result_error(context, "the language registry failed", -1);
  }
}

}  // namespace

bool _sql_is_test_path(Argument path) {
  if (path && path->size() > internal::SQL_LONGEST_REMEMBERED) return is_test_path(*path);
  return memo().answer(path, [&] { return path && !path->empty() && is_test_path(*path); });
}

void register_path_functions(sqlite3* connection) {
  if (connection == nullptr) throw std::invalid_argument("register_path_functions: no connection");
  const int result = sqlite3_create_function_v2(
      connection, SQL_TEST_PATH_FN.data(), /*nArg=*/1,
      SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, /*pApp=*/nullptr, sql_function,
      /*xStep=*/nullptr, /*xFinal=*/nullptr, /*xDestroy=*/nullptr);
  if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(connection));
}

SqlTestPathFilter sql_test_path_filter(std::string_view alias, SqlTestPathFilterOptions options) {
  const std::string_view negate = options.exclude.value ? "NOT " : "";
  std::string sql;
  if (options.via == "id") {
    sql.append(alias).append(".id ").append(negate).append("IN (SELECT id FROM files WHERE ");
    sql.append(SQL_TEST_PATH_FN).append("(path))");
  } else {
    sql.append(negate).append(SQL_TEST_PATH_FN).append("(").append(alias).append(".path)");
  }
  return {.sql = std::move(sql), .params = {}};
}

SqlTestPathFilter sql_test_path_filter(SqlTestPathFilterOptions options) {
  return sql_test_path_filter("f", options);
}

}  // namespace path_filter

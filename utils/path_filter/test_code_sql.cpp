#include "utils/path_filter/test_code_sql.h"

#include <pthread.h>

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>
#include <exception>
#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "utils/path_filter/internal/hash.h"
#include "utils/path_filter/test_code.h"

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

namespace mi = boost::multi_index;

using Argument = std::optional<std::string_view>;

/// The answers of the SQL function that were used last.
class Memo {
 public:
  Memo() { _by_path.reserve(internal::SQL_PATH_CACHE_SIZE + 1); }

  void lock() { _lock.lock(); }
  void unlock() { _lock.unlock(); }

  std::optional<bool> find(Argument path) {
    const std::lock_guard hold(_lock);
    const auto found = _by_path.find(path);
    if (found == _by_path.end()) return std::nullopt;
    _by_use.relocate(_by_use.begin(), _entries.project<0>(found));
    return found->is_test;
  }

  void store(Argument path, bool is_test) {
    Entry entry{path ? std::make_optional<std::string>(*path) : std::nullopt, is_test};
    const std::lock_guard hold(_lock);
    const auto [place, inserted] = _by_use.push_front(std::move(entry));
    // Another thread may have stored the same answer since this one asked.
    if (!inserted) _by_use.relocate(_by_use.begin(), place);
    if (_by_use.size() > internal::SQL_PATH_CACHE_SIZE) _by_use.pop_back();
  }

 private:
  struct Entry {
    std::optional<std::string> path;
    bool is_test;
  };

  struct Hash {
    std::size_t operator()(const Argument& path) const {
      return path ? internal::hash_text(*path) : 0;
    }
  };

  // One container with both orders, so that no second structure has to be kept in step
  // by hand. It is asked with a view, builds no string for that, and moves an entry to
  // the front without allocating.
  using Entries = boost::multi_index_container<
      Entry,
      mi::indexed_by<mi::sequenced<>,  // the most recently used first
                     mi::hashed_unique<mi::member<Entry, std::optional<std::string>, &Entry::path>,
                                       Hash, std::equal_to<>>>>;

  std::mutex _lock;  // of the entries; never held while the predicate runs
  Entries _entries;
  Entries::nth_index<0>::type& _by_use = _entries.get<0>();
  Entries::nth_index<1>::type& _by_path = _entries.get<1>();
};

/// The memo of the process. It is never destroyed: a thread may still run queries while
/// the process ends.
Memo& memo() {
  static Memo& the_memo = *new Memo;
  // A child that is forked while another thread is in the memo must find it free.
  static const int forks [[maybe_unused]] = ::pthread_atfork(
      [] { the_memo.lock(); }, [] { the_memo.unlock(); }, [] { the_memo.unlock(); });
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

}  // namespace

bool _sql_is_test_path(Argument path) {
  if (path && path->size() > internal::SQL_LONGEST_REMEMBERED) return is_test_path(*path);
  if (const std::optional<bool> known = memo().find(path)) return *known;
  const bool is_test = path && !path->empty() && is_test_path(*path);
  memo().store(path, is_test);
  return is_test;
}

namespace {

// Called by SQLite, which is C: no exception may leave it.
extern "C" void sql_function(sqlite3_context* context, int /*argument_count*/,
                             sqlite3_value** arguments) {
  try {
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

void register_path_functions(sqlite3* connection) {
  if (connection == nullptr) throw std::invalid_argument("register_path_functions: no connection");
  const int result = sqlite3_create_function_v2(
      connection, SQL_TEST_PATH_FN.data(), /*nArg=*/1,
      SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, /*pApp=*/nullptr, sql_function,
      /*xStep=*/nullptr, /*xFinal=*/nullptr, /*xDestroy=*/nullptr);
  if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(connection));
}

SqlTestPathFilter sql_test_path_filter(std::string_view alias, SqlTestPathFilterOptions options) {
  const std::string_view negate = options.exclude ? "NOT " : "";
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

// The loadable SQLite extension path_filter_sqlite.so. It gives the connection that loads
// it the SQL function brelo_is_test_path (see utils/path_filter/test_code/test_code_sql.h),
// answered by the default language registry, which is part of the extension.
//
//   sqlite> .load ./path_filter_sqlite
//   sqlite> SELECT path FROM files WHERE NOT brelo_is_test_path(path);
//
// It is for programs that do not link path_filter. One that does, and loads the extension
// besides, has two memos, and the function is that of whichever was registered last.

#include <sqlite3ext.h>

#include <exception>
#include <mutex>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/test_code/test_code_sql.h"

SQLITE_EXTENSION_INIT1

extern "C" {

// SQLite derives this name from that of the file.
PATH_FILTER_ENTRY_POINT int sqlite3_pathfiltersqlite_init(sqlite3* connection, char** error_message,
                                                          const sqlite3_api_routines* api) {
  // SQLite holds a lock of the connection here and none of the process, and hands the same
  // table to each of its connections: it is stored once, so that no store meets a thread's use.
  static std::once_flag stored;
  std::call_once(stored, [&] { SQLITE_EXTENSION_INIT2(api) });
  if (api != sqlite3_api) {
    if (error_message != nullptr) {
      *error_message = api->mprintf("path_filter serves one SQLite library of a process");
    }
    return SQLITE_ERROR;
  }
  try {
    path_filter::register_path_functions(connection);
  } catch (const std::exception& error) {
    if (error_message != nullptr) *error_message = sqlite3_mprintf("%s", error.what());
    return SQLITE_ERROR;
  }
  // Not unloaded when the last connection that loaded it closes: the memo is the process's.
  return SQLITE_OK_LOAD_PERMANENTLY;
}

// SQLite tries this name first, so the file may be renamed.
PATH_FILTER_ENTRY_POINT int sqlite3_extension_init(sqlite3* connection, char** error_message,
                                                   const sqlite3_api_routines* api) {
  return sqlite3_pathfiltersqlite_init(connection, error_message, api);
}

}  // extern "C"

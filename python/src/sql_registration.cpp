#include "python/src/sql_registration.h"

#include <dlfcn.h>
#include <sqlite3ext.h>

#include <cstddef>
#include <cstring>
#include <optional>

#include "python/src/conversions.h"

// The loadable extension's, which is part of the module.
extern "C" int sqlite3_extension_init(sqlite3* connection, char** error_message,
                                      const sqlite3_api_routines* api);

namespace path_filter::python {
namespace {

using EntryPoint = int (*)(sqlite3*, char**, const sqlite3_api_routines*);

/// What SQLite says of a connection that is opened on this thread.
struct Opened {
  sqlite3* connection = nullptr;
  const sqlite3_api_routines* api = nullptr;
};
thread_local Opened opened;

int note_opened(sqlite3* connection, char**, const sqlite3_api_routines* api) {
  opened = {connection, api};
  return SQLITE_OK;
}

/// SQLite's connection in an object of Python's.
sqlite3* connection_at(nb::handle object, std::size_t offset) {
  sqlite3* connection = nullptr;
  std::memcpy(&connection, reinterpret_cast<const char*>(object.ptr()) + offset, sizeof connection);
  return connection;
}

struct Access {
  const sqlite3_api_routines* api;
  std::size_t offset;  // as of connection_at
};

/// SQLite tells of a connection that is opened for this; its object is searched for it.
std::optional<Access> find_access(nb::handle module) {
  const nb::object file = nb::getattr(module, "__file__", nb::none());
  void* library = ::dlopen(file.is_none() ? nullptr : nb::str(file).c_str(), RTLD_LAZY);
  if (library == nullptr) return std::nullopt;
  // Of SQLite's C interface: the library stays loaded, as the module is.
  const auto add =
      reinterpret_cast<int (*)(void (*)())>(::dlsym(library, "sqlite3_auto_extension"));
  const auto cancel =
      reinterpret_cast<int (*)(void (*)())>(::dlsym(library, "sqlite3_cancel_auto_extension"));
  const auto entry_point = reinterpret_cast<void (*)()>(static_cast<EntryPoint>(note_opened));
  if (add == nullptr || cancel == nullptr || add(entry_point) != SQLITE_OK) return std::nullopt;
  opened = {};
  nb::object connection;
  try {
    connection = module.attr("connect")(":memory:");
  } catch (...) {
    cancel(entry_point);
    throw;
  }
  cancel(entry_point);
  std::optional<Access> found;
  const auto size = static_cast<std::size_t>(Py_TYPE(connection.ptr())->tp_basicsize);
  for (std::size_t at = sizeof(PyObject); at + sizeof(void*) <= size; at += sizeof(void*)) {
    if (opened.connection == nullptr || connection_at(connection, at) != opened.connection)
      continue;
    found = Access{opened.api, at};
    break;
  }
  connection.attr("close")();
  return found;
}

}  // namespace

bool register_with_sqlite(nb::handle connection, nb::handle module) {
  // Not made where it is declared: a thread that waits for that holds the interpreter's lock.
  static std::optional<std::optional<Access>> known;
  if (!known) {
    const auto found = find_access(module);
    known = found;
  }
  const std::optional<Access>& access = *known;
  return access && sqlite3_extension_init(connection_at(connection, access->offset), nullptr,
                                          access->api) == SQLITE_OK_LOAD_PERMANENTLY;
}

}  // namespace path_filter::python

#include "python/src/sql_registration.h"

#include <sqlite3ext.h>

#include <cstddef>
#include <cstdint>
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
  nb::handle type;     // of Python's connections
  std::size_t offset;  // as of connection_at
  const sqlite3_api_routines* api;
};

/// SQLite tells of a connection that is opened for this; its object is searched for it.
std::optional<Access> find_access(nb::handle find_sqlite) {
  const nb::object places = find_sqlite();
  if (places.is_none()) return std::nullopt;
  using Change = int (*)(void (*)());
  const nb::object type = places[0];
  const auto add = reinterpret_cast<Change>(nb::cast<std::uintptr_t>(places[1]));
  const auto cancel = reinterpret_cast<Change>(nb::cast<std::uintptr_t>(places[2]));
  const auto entry_point = reinterpret_cast<void (*)()>(static_cast<EntryPoint>(note_opened));
  if (add(entry_point) != SQLITE_OK) return std::nullopt;
  // Opening lets go of the interpreter's lock: of all threads that are here the last one ends it.
  static unsigned threads = 0;
  ++threads;
  const auto end = [&] {
    if (--threads == 0) cancel(entry_point);
  };
  opened = {};
  nb::object connection;
  try {
    connection = type(":memory:");
  } catch (...) {
    end();
    throw;
  }
  end();
  std::optional<Access> found;
  const auto size = nb::cast<std::size_t>(type.attr("__basicsize__"));
  for (std::size_t at = sizeof(PyObject); at + sizeof(void*) <= size; at += sizeof(void*)) {
    if (opened.connection == nullptr || connection_at(connection, at) != opened.connection)
      continue;
    found = Access{type.inc_ref(), at, opened.api};
    break;
  }
  connection.attr("close")();
  return found;
}

}  // namespace

bool register_with_sqlite(nb::handle connection, nb::handle find_sqlite) {
  // Not made where it is declared: a thread that waits for that holds the interpreter's lock.
  static std::optional<std::optional<Access>> known;
  if (!known) {
    const auto found = find_access(find_sqlite);
    known = found;
  }
  const std::optional<Access>& access = *known;
  if (!access || PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(connection.type().ptr()),
                                  reinterpret_cast<PyTypeObject*>(access->type.ptr())) == 0) {
    return false;
  }
  // Whoever closes it needs the interpreter's lock, and takes it out of the object first.
  sqlite3* const open = connection_at(connection, access->offset);
  return open != nullptr &&
         sqlite3_extension_init(open, nullptr, access->api) == SQLITE_OK_LOAD_PERMANENTLY;
}

}  // namespace path_filter::python

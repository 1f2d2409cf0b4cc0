// The SQL function on a connection of Python's module sqlite3.

#ifndef PYTHON_SRC_SQL_REGISTRATION_H_
#define PYTHON_SRC_SQL_REGISTRATION_H_

#include <nanobind/nanobind.h>

namespace path_filter::python {

/// Registers the SQL function with the SQLite behind `connection`, as what Python's module
/// registers gets no text that is not UTF-8, and holds the interpreter's lock. `find_sqlite` is
/// called once: it gives that module's type of connections and the addresses of
/// sqlite3_auto_extension and sqlite3_cancel_auto_extension, or None. False, with nothing done,
/// where it is None, and for what is no open connection of that type.
bool register_with_sqlite(nanobind::handle connection, nanobind::handle find_sqlite);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_SQL_REGISTRATION_H_

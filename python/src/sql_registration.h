// The SQL function on a connection of Python's module sqlite3.

#ifndef PYTHON_SRC_SQL_REGISTRATION_H_
#define PYTHON_SRC_SQL_REGISTRATION_H_

#include <nanobind/nanobind.h>

namespace path_filter::python {

/// Registers the SQL function with the SQLite behind `connection`, an open sqlite3.Connection,
/// of which the module `_sqlite3` is given: what sqlite3 registers gets no text that is not UTF-8,
/// and holds the interpreter's lock. False, with nothing done, where that SQLite cannot be reached.
bool register_with_sqlite(nanobind::handle connection, nanobind::handle module);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_SQL_REGISTRATION_H_

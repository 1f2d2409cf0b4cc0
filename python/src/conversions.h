// Texts, numbers and errors between Python and the component.

#ifndef PYTHON_SRC_CONVERSIONS_H_
#define PYTHON_SRC_CONVERSIONS_H_

#include <nanobind/nanobind.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace path_filter::python {

namespace nb = nanobind;

/// The bytes of a text or of an os.PathLike, as os.fsencode gives them: a name that is not
/// valid text keeps its bytes. A view of `object` where that is possible.
class PathBytes {
 public:
  /// Throws what `object.__fspath__` raises, UnicodeEncodeError for what no file can be named,
  /// and else a TypeError that names the argument.
  PathBytes(PyObject* object, const char* argument) {
    if (PyUnicode_CheckExact(object) != 0 && PyUnicode_IS_COMPACT_ASCII(object) != 0) {
      _view = {reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(object)),
               static_cast<std::size_t>(PyUnicode_GET_LENGTH(object))};
    } else {
      encode(object, argument);
    }
  }

  operator std::string_view() const { return _view; }  // NOLINT: implicit by intent

 private:
  void encode(PyObject* object, const char* argument);

  nb::object _owner;
  std::string_view _view;
};

/// A text of the file system's, as os.fsdecode gives it.
nb::str to_str(std::string_view text);

/// An integer of any width, as far as 64 bits go; absent for None.
std::optional<std::int64_t> to_int64(PyObject* object, const char* argument);

/// Throws the TypeError "ARGUMENT: expected EXPECTED, not TYPE".
[[noreturn]] void fail_type(const char* argument, const char* expected, PyObject* object);

/// In a catch block of a function that Python calls directly: makes the exception Python's.
PyObject* set_current_exception() noexcept;

/// The OSError of a code and a path.
nb::object os_error(int code, const std::string& message, std::string_view path);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_CONVERSIONS_H_

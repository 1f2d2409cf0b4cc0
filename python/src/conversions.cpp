#include "python/src/conversions.h"

#include <limits>
#include <new>
#include <stdexcept>

#include "utils/path_filter/base/path_argument.h"
#include "utils/path_filter/git_ignore/git_ignore.h"

namespace path_filter::python {

namespace {

// Elsewhere the component's paths are WTF-8, whatever Python has been told to use there.
constexpr bool NAMES_ARE_BYTES = std::filesystem::path::preferred_separator == '/';

}  // namespace

std::string_view view_of_bytes(PyObject* bytes) {
  return {PyBytes_AsString(bytes), static_cast<std::size_t>(PyBytes_Size(bytes))};
}

#ifdef Py_LIMITED_API
bool PathBytes::encoding_is_utf8() {
  const nb::object encoding = nb::module_::import_("sys").attr("getfilesystemencoding")();
  return PyUnicode_CompareWithASCIIString(encoding.ptr(), "utf-8") == 0;
}
#endif

void PathBytes::encode(PyObject* object, const char* argument) {
  PyErr_Clear();  // of a text that is not UTF-8
  _owner = nb::borrow(object);
  if (PyUnicode_Check(object) == 0) {
    if (!nb::hasattr(_owner.type(), "__fspath__")) {
      fail_type(argument, "str or os.PathLike", object);
    }
    _owner = nb::steal(PyOS_FSPath(object));
    if (!_owner.is_valid()) nb::raise_python_error();
    // A text of POSIX is not split at a backslash, and the object's parts are.
    if (nb::isinstance<nb::str>(_owner) &&
        PyUnicode_FindChar(_owner.ptr(), '\\', 0, PY_SSIZE_T_MAX, 1) >= 0 &&
        nb::hasattr(nb::handle(object), "as_posix")) {
      _owner = nb::handle(object).attr("as_posix")();
    }
  }
  if (PyUnicode_Check(_owner.ptr()) != 0) {
    _owner = nb::steal(NAMES_ARE_BYTES
                           ? PyUnicode_EncodeFSDefault(_owner.ptr())
                           : PyUnicode_AsEncodedString(_owner.ptr(), "utf-8", "surrogatepass"));
    if (!_owner.is_valid()) nb::raise_python_error();
  }
  _view = view_of_bytes(_owner.ptr());
}

TextBytes::TextBytes(PyObject* object, const char* argument) : _owner(nb::borrow(object)) {
  if (PyUnicode_Check(object) == 0) fail_type(argument, "str", object);
  Py_ssize_t size = 0;
  if (const char* text = PyUnicode_AsUTF8AndSize(object, &size)) {
    _view = {text, static_cast<std::size_t>(size)};
    return;
  }
  PyErr_Clear();
  _owner = nb::steal(PyUnicode_AsEncodedString(object, "utf-8", "surrogateescape"));
  if (!_owner.is_valid()) nb::raise_python_error();
  _view = view_of_bytes(_owner.ptr());
}

void hear_signals() {
  if (run_python([] { return PyErr_CheckSignals(); }) != 0) nb::raise_python_error();
}

void add_note(const nb::python_error& error, std::string_view note) {
  error.value().attr("add_note")(to_str(note));
}

bool holds_lock() noexcept {
  // From 3.12 on a thread that does not hold it has no state, and so no dictionary. Up to 3.11
  // it sees the state of the thread that does.
#ifdef Py_LIMITED_API
  return PyThreadState_GetDict() != nullptr;
#else
  PyThreadState* now = _PyThreadState_UncheckedGet();
  return now != nullptr && now == PyGILState_GetThisThreadState();
#endif
}

nb::str from_utf8(std::string_view text) {
  PyObject* made =
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
  if (made == nullptr) nb::raise_python_error();
  return nb::steal<nb::str>(made);
}

nb::str to_str(std::string_view text) {
  const auto size = static_cast<Py_ssize_t>(text.size());
  PyObject* made = NAMES_ARE_BYTES ? PyUnicode_DecodeFSDefaultAndSize(text.data(), size)
                                   : PyUnicode_DecodeUTF8(text.data(), size, "surrogatepass");
  if (made == nullptr) nb::raise_python_error();
  return nb::steal<nb::str>(made);
}

nb::str from_path(const std::filesystem::path& path) { return to_str(path_text(path)); }

std::filesystem::path to_path(nb::handle object, const char* argument) {
  const PathBytes path(object.ptr(), argument);
  if (std::string_view(path).find('\0') != std::string_view::npos) {
    PyErr_Format(PyExc_ValueError, "%s: embedded null character", argument);
    nb::raise_python_error();
  }
  return path_of(path);
}

std::optional<std::int64_t> to_int64(PyObject* object, const char* argument) {
  if (object == nullptr || object == Py_None) return std::nullopt;
  const nb::object number = nb::steal(PyNumber_Index(object));
  if (!number.is_valid()) {
    if (PyErr_ExceptionMatches(PyExc_TypeError) == 0) nb::raise_python_error();
    PyErr_Clear();
    fail_type(argument, "int or None", object);
  }
  int overflow = 0;
  const long long value = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
  if (overflow > 0) return std::numeric_limits<std::int64_t>::max();
  if (overflow < 0) return std::numeric_limits<std::int64_t>::min();
  return value;
}

void fail_type(const char* argument, const char* expected, PyObject* object) {
  PyErr_Format(PyExc_TypeError, "%s: expected %s, not %U", argument, expected,
               nb::steal(PyType_GetName(Py_TYPE(object))).ptr());
  nb::raise_python_error();
}

nb::object os_error(const std::filesystem::filesystem_error& error) {
  return nb::borrow(PyExc_OSError)(error.code().value(), to_str(error.code().message()),
                                   from_path(error.path1()));
}

PyObject* set_current_exception() noexcept {
  try {
    try {
      throw;
    } catch (nb::python_error& error) {
      error.restore();
    } catch (const DecodingError& error) {
      // Python's own decoder says which bytes, where, and why.
      Py_XDECREF(PyUnicode_DecodeUTF8(error.content().data(),
                                      static_cast<Py_ssize_t>(error.content().size()), "strict"));
      if (PyErr_Occurred() == nullptr) PyErr_SetString(PyExc_ValueError, error.what());
      nb::python_error raised;
      add_note(raised, error.what());
      raised.restore();
    } catch (const std::filesystem::filesystem_error& error) {
      const nb::object raised = os_error(error);
      PyErr_SetObject(raised.type().ptr(), raised.ptr());
    } catch (const std::system_error& error) {
      PyErr_SetObject(PyExc_OSError, nb::make_tuple(error.code().value(), error.what()).ptr());
    } catch (const std::invalid_argument& error) {
      PyErr_SetObject(PyExc_ValueError, to_str(error.what()).ptr());
    } catch (const std::bad_alloc&) {
      PyErr_NoMemory();
    } catch (const std::exception& error) {
      PyErr_SetString(PyExc_RuntimeError, error.what());
    }
  } catch (nb::python_error& error) {
    error.restore();
  } catch (...) {
    PyErr_NoMemory();
  }
  return nullptr;
}

}  // namespace path_filter::python

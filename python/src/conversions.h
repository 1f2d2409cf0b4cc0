// Texts, numbers and errors between Python and the component.

#ifndef PYTHON_SRC_CONVERSIONS_H_
#define PYTHON_SRC_CONVERSIONS_H_

#include <nanobind/nanobind.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace path_filter::python {

namespace nb = nanobind;

/// The bytes of a text or of an os.PathLike, as os.fsencode gives them: a name that is not
/// valid text keeps its bytes, or on Windows its surrogates. A path of Windows has its parts
/// between "/". A view of `object` where that is possible.
class PathBytes {
 public:
  /// Throws what `object.__fspath__` raises, UnicodeEncodeError for what no file can be named,
  /// and else a TypeError that names the argument.
  PathBytes(PyObject* object, const char* argument) {
    Py_ssize_t size = 0;
    const char* text = nullptr;
    if (PyUnicode_CheckExact(object) != 0) text = own_bytes(object, &size);
    if (text != nullptr) [[likely]] {
      _view = {text, static_cast<std::size_t>(size)};
    } else {
      encode(object, argument);
    }
  }

  operator std::string_view() const { return _view; }  // NOLINT: implicit by intent

 private:
  /// The name of a text where the text itself holds it, else null. The stable ABI shows no text's
  /// inside, but makes and keeps its UTF-8, which is the name where that is the system's encoding.
#ifdef Py_LIMITED_API
  static const char* own_bytes(PyObject* text, Py_ssize_t* size) {
    static const bool names_are_utf8 = encoding_is_utf8();
    return names_are_utf8 ? PyUnicode_AsUTF8AndSize(text, size) : nullptr;
  }
  static bool encoding_is_utf8();
#else
  static const char* own_bytes(PyObject* text, Py_ssize_t* size) {
    *size = PyUnicode_GET_LENGTH(text);
    const bool is_ascii = PyUnicode_IS_COMPACT_ASCII(text) != 0;
    return is_ascii ? reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(text)) : nullptr;
  }
#endif
  void encode(PyObject* object, const char* argument);

  nb::object _owner;
  std::string_view _view;
};

/// The UTF-8 of a text that is not the file system's: the name of a language, SQL. A lone
/// surrogate stands for a byte there too. Throws TypeError for what is not a str.
class TextBytes {
 public:
  TextBytes(PyObject* object, const char* argument);

  operator std::string_view() const { return _view; }  // NOLINT: implicit by intent

 private:
  nb::object _owner;
  std::string_view _view;
};

/// A text of the file system's, as os.fsdecode gives it.
nb::str to_str(std::string_view text);
nb::str from_path(const std::filesystem::path& path);

/// The path that `object` names, a str or an os.PathLike. Throws what PathBytes does, and a
/// ValueError for a null character.
std::filesystem::path to_path(nb::handle object, const char* argument);

/// A view of an object of type bytes.
std::string_view view_of_bytes(PyObject* bytes);

/// The text of what TextBytes gives.
nb::str from_utf8(std::string_view text);

/// The list of such texts.
nb::list listed(const auto& texts) {
  nb::list made;
  for (const std::string_view text : texts) made.append(from_utf8(text));
  return made;
}

/// Of tables of std::string that are asked with views.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>{}(text);
  }
};

/// Whether this thread holds the interpreter's lock. (PyGILState_Check says so of every thread
/// once there has been a second interpreter, and the stable ABI lacks it.)
bool holds_lock() noexcept;

/// What `call` returns, which runs Python code. When Python ends meanwhile, up to 3.13, it makes
/// its other threads exit by an unwind, which no frame above is made for: such a thread sleeps
/// here until the process is gone, as from 3.14 on.
template <typename Call>
auto run_python(Call call) {
  try {
    return call();
  } catch (const std::exception&) {
    throw;
  } catch (...) {  // the unwind is no exception of C++
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }
}

/// Runs the handlers of the signals that have come, as Python does between its instructions.
/// Throws what one raises. Costs next to nothing when there are none.
void hear_signals();

/// Adds a line to what a traceback shows of `error`.
void add_note(const nb::python_error& error, std::string_view note);

/// An integer of any width, as far as 64 bits go; absent for None.
std::optional<std::int64_t> to_int64(PyObject* object, const char* argument);

/// Throws the TypeError "ARGUMENT: expected EXPECTED, not TYPE".
[[noreturn]] void fail_type(const char* argument, const char* expected, PyObject* object);

/// In a catch block of a function that Python calls directly: makes the exception Python's.
PyObject* set_current_exception() noexcept;

/// The OSError of the same code and path.
nb::object os_error(const std::filesystem::filesystem_error& error);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_CONVERSIONS_H_

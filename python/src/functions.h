// Functions that Python calls without a layer between, with arguments by position or by name.
// They are built-in functions to Python, with signatures that help() and inspect know.

#ifndef PYTHON_SRC_FUNCTIONS_H_
#define PYTHON_SRC_FUNCTIONS_H_

#include <nanobind/nanobind.h>

#include <array>
#include <cstddef>

#include "python/src/conversions.h"

namespace path_filter::python {

/// What a function takes: its arguments' names, in their order.
template <std::size_t Count>
struct Signature {
  const char* function;
  std::array<const char*, Count> names;
  std::size_t positional = Count;  // so many may be given by position
  std::size_t required = Count;    // so many must be given; the others are None
};

/// Reads the arguments of one call into `values`, one for each name. Throws TypeError, as a
/// function written in Python raises it.
void read_arguments(const char* function, const char* const* names, std::size_t names_count,
                    std::size_t positional, std::size_t required, PyObject* const* given,
                    Py_ssize_t given_count, PyObject* keywords, PyObject** values);

/// The entry of a table of methods. `Body` is called with the object (or the module) and the
/// arguments, and returns an object; what it throws becomes Python's.
template <const auto& SIGNATURE, auto Body>
constexpr PyMethodDef function(const char* documentation) {
  constexpr auto call = [](PyObject* self, PyObject* const* given, Py_ssize_t count,
                           PyObject* keywords) noexcept -> PyObject* {
    try {
      std::array<PyObject*, SIGNATURE.names.size()> values{};
      read_arguments(SIGNATURE.function, SIGNATURE.names.data(), values.size(),
                     SIGNATURE.positional, SIGNATURE.required, given, count, keywords,
                     values.data());
      return Body(self, values).release().ptr();
    } catch (...) {
      return set_current_exception();
    }
  };
  PyObject* (*const plain)(PyObject*, PyObject* const*, Py_ssize_t, PyObject*) noexcept = call;
  return {SIGNATURE.function, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(plain)),
          METH_FASTCALL | METH_KEYWORDS, documentation};
}

/// Makes `definitions` functions of the module. They must live as long as the process.
template <std::size_t Count>
void add_functions(nb::module_& module, std::array<PyMethodDef, Count>& definitions) {
  const nb::object name = module.attr("__name__");
  for (PyMethodDef& definition : definitions) {
    module.attr(definition.ml_name) =
        nb::steal(PyCFunction_NewEx(&definition, module.ptr(), name.ptr()));
  }
}

/// Of the definition of a module: it is executed in the main interpreter only, and refused in
/// another with an ImportError before nanobind, whose state is the process's, hears of it.
PyObject* main_interpreter_only(PyObject* definition);

/// Names what one copy of a module shares with nobody in the process, so that its types are its
/// own: two copies may have different registries.
const char* domain_of_this_copy();

}  // namespace path_filter::python

#undef NB_DOMAIN_STR
#define NB_DOMAIN_STR ::path_filter::python::domain_of_this_copy()

#endif  // PYTHON_SRC_FUNCTIONS_H_

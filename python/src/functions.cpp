#include "python/src/functions.h"

#include <string>

namespace path_filter::python {
namespace {

using Execute = int (*)(PyObject* module);
Execute execute = nullptr;  // nanobind's, once it is replaced

int execute_in_main_interpreter(PyObject* module) {
  if (PyInterpreterState_GetID(PyInterpreterState_Get()) == 0) return execute(module);
  PyErr_Format(PyExc_ImportError, "%s works in the main interpreter only",
               PyModule_GetName(module));
  return -1;
}

}  // namespace

PyObject* main_interpreter_only(PyObject* definition) {
  if (definition == nullptr || execute != nullptr) return definition;
  for (auto* slot = reinterpret_cast<PyModuleDef*>(definition)->m_slots; slot->slot != 0; ++slot) {
    if (slot->slot != Py_mod_exec) continue;
    execute = reinterpret_cast<Execute>(slot->value);
    slot->value = reinterpret_cast<void*>(&execute_in_main_interpreter);
  }
  return definition;
}

const char* domain_of_this_copy() {
  static const std::string name =
      "path_filter at " + std::to_string(reinterpret_cast<std::uintptr_t>(&execute));
  return name.c_str();
}

void read_arguments(const char* function, const char* const* names, std::size_t names_count,
                    std::size_t positional, std::size_t required, PyObject* const* given,
                    Py_ssize_t given_count, PyObject* keywords, PyObject** values) {
  const auto count = static_cast<std::size_t>(given_count);
  if (count > positional) {
    PyErr_Format(PyExc_TypeError, "%s() takes %zu positional argument%s but %zu were given",
                 function, positional, positional == 1 ? "" : "s", count);
    nb::raise_python_error();
  }
  for (std::size_t at = 0; at < names_count; ++at) values[at] = at < count ? given[at] : nullptr;
  const Py_ssize_t by_name = keywords == nullptr ? 0 : PyTuple_Size(keywords);
  for (Py_ssize_t at = 0; at < by_name; ++at) {
    PyObject* keyword = PyTuple_GetItem(keywords, at);
    std::size_t place = 0;
    while (place < names_count && PyUnicode_CompareWithASCIIString(keyword, names[place]) != 0) {
      ++place;
    }
    if (place == names_count || values[place] != nullptr) {
      PyErr_Format(PyExc_TypeError,
                   place == names_count ? "%s() got an unexpected keyword argument '%U'"
                                        : "%s() got multiple values for argument '%U'",
                   function, keyword);
      nb::raise_python_error();
    }
    values[place] = given[given_count + at];
  }
  for (std::size_t at = 0; at < names_count; ++at) {
    if (values[at] != nullptr) continue;
    if (at < required) {
      PyErr_Format(PyExc_TypeError, "%s() missing the required argument '%s'", function, names[at]);
      nb::raise_python_error();
    }
    values[at] = Py_None;
  }
}

}  // namespace path_filter::python

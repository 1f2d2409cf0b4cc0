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
  const Py_ssize_t by_name = keywords == nullptr ? 0 : Py_SIZE(keywords);
  for (Py_ssize_t at = 0; at < by_name; ++at) {
    PyObject* keyword = PyTuple_GetItem(keywords, at);
    std::size_t place = names_count;  // from behind: the last ones are given by name
    while (place > 0 && PyUnicode_CompareWithASCIIString(keyword, names[place - 1]) != 0) --place;
    if (place == 0 || values[place - 1] != nullptr) {
      PyErr_Format(PyExc_TypeError,
                   place == 0 ? "%s() got an unexpected keyword argument '%U'"
                              : "%s() got multiple values for argument '%U'",
                   function, keyword);
      nb::raise_python_error();
    }
    values[place - 1] = given[given_count + at];
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

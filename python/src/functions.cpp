#include "python/src/functions.h"

namespace path_filter::python {

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
  const Py_ssize_t by_name = keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
  for (Py_ssize_t at = 0; at < by_name; ++at) {
    PyObject* keyword = PyTuple_GET_ITEM(keywords, at);
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

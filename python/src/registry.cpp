// The extension module language_registry._native: the tables of the default registry.

#include <nanobind/nanobind.h>

#include "python/src/functions.h"
#include "utils/language_registry/default_registry.h"

namespace path_filter::python {

namespace registry = language_registry::default_registry;

namespace {

constexpr Signature<1> DETECT_LANGUAGE{"detect_language", {"name"}};
nb::object detect_language(PyObject*, const std::array<PyObject*, 1>& arguments) {
  const auto language = registry::detect_language(PathBytes(arguments[0], "name"));
  return language ? nb::object(from_utf8(*language)) : nb::none();
}

constexpr Signature<1> IS_LOCKFILE{"is_lockfile", {"name"}};
nb::object is_lockfile(PyObject*, const std::array<PyObject*, 1>& arguments) {
  return nb::bool_(registry::is_lockfile(PathBytes(arguments[0], "name")));
}

constexpr Signature<1> TIER_OF{"tier_of", {"language"}};
nb::object tier_of(PyObject*, const std::array<PyObject*, 1>& arguments) {
  return from_utf8(registry::tier_of(TextBytes(arguments[0], "language")));
}

/// (tier, test_file_globs), or None
constexpr Signature<1> CLASSIFY{"classify", {"name"}};
nb::object classify(PyObject*, const std::array<PyObject*, 1>& arguments) {
  const auto* record = registry::classify(PathBytes(arguments[0], "name"));
  if (record == nullptr) return nb::none();
  return nb::make_tuple(from_utf8(record->tier), listed(record->test_file_globs));
}

std::array functions{
    function<DETECT_LANGUAGE, detect_language>(
        "detect_language($module, /, name)\n--\n\n"
        "The name of the language that a file of this name is written in, or None."),
    function<IS_LOCKFILE, is_lockfile>("is_lockfile($module, /, name)\n--\n\n"
                                       "Whether a file of this name is a dependency lock."),
    function<TIER_OF, tier_of>("tier_of($module, /, language)\n--\n\n"
                               "The tier of a language; \"\" for one that is not known."),
    function<CLASSIFY, classify>("classify($module, /, name)\n--\n\n"),
};

}  // namespace

NB_MODULE(native, module) {
  module.attr("VERSION") = PATH_FILTER_VERSION;
  module.attr("TEST_DIR_NAMES") = nb::frozenset(listed(registry::test_dir_names()));
  module.attr("TEST_FILE_GLOBS") = nb::tuple(listed(registry::test_file_globs()));
  add_functions(module, functions);
}

extern "C" NB_EXPORT PyObject* PyInit__native() { return main_interpreter_only(PyInit_native()); }

}  // namespace path_filter::python

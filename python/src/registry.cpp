// The extension module language_registry._native: the tables of the default registry.

#include <nanobind/nanobind.h>

#include <string_view>

#include "python/src/conversions.h"
#include "utils/language_registry/default_registry.h"

namespace path_filter::python {

namespace registry = language_registry::default_registry;

NB_MODULE(_native, module) {
  module.attr("VERSION") = PATH_FILTER_VERSION;
  const auto listed = [](const auto& texts) {
    nb::list made;
    for (const std::string_view text : texts) made.append(to_str(text));
    return made;
  };
  module.def(
      "detect_language",
      [](nb::handle name) -> nb::object {
        const auto language = registry::detect_language(PathBytes(name.ptr(), "name"));
        return language ? nb::object(to_str(*language)) : nb::none();
      },
      nb::arg("name").none());
  module.def(
      "is_lockfile",
      [](nb::handle name) { return registry::is_lockfile(PathBytes(name.ptr(), "name")); },
      nb::arg("name").none());
  module.def(
      "tier_of",
      [](nb::handle language) {
        return to_str(registry::tier_of(PathBytes(language.ptr(), "language")));
      },
      nb::arg("language").none());
  module.def(
      "classify",
      [listed](nb::handle name) -> nb::object {
        const auto* record = registry::classify(PathBytes(name.ptr(), "name"));
        if (record == nullptr) return nb::none();
        return nb::make_tuple(to_str(record->tier), listed(record->test_file_globs));
      },
      nb::arg("name").none());
  module.def("test_dir_names", [listed] { return listed(registry::test_dir_names()); });
  module.def("test_file_globs", [listed] { return listed(registry::test_file_globs()); });
}

}  // namespace path_filter::python

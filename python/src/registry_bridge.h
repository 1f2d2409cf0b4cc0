// The registry of the Python module: the default one, or a module of the host's.

#ifndef PYTHON_SRC_REGISTRY_BRIDGE_H_
#define PYTHON_SRC_REGISTRY_BRIDGE_H_

#include <nanobind/nanobind.h>

namespace path_filter::python {

/// From now on every question asks `module`, which has `detect_language`, `is_lockfile`,
/// `tier_of` (bound here, once) and `LANGUAGES` (looked up at each use). When `is_default` the
/// default registry answers in its place, without a call of Python's. Throws ImportError when a
/// name is missing, or when another registry has been bound.
void bind_registry(nanobind::object module, bool is_default);

/// Whether the module's `LANGUAGES` is asked, or the default registry's.
void ask_languages(bool of_module);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_REGISTRY_BRIDGE_H_

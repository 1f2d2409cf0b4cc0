// The registry of the Python module: the default one, or a module of the host's.

#ifndef PYTHON_SRC_REGISTRY_BRIDGE_H_
#define PYTHON_SRC_REGISTRY_BRIDGE_H_

#include <nanobind/nanobind.h>

namespace path_filter::python {

/// From now on every question asks `module`, which has `detect_language`, `is_lockfile`,
/// `tier_of` (bound here, once) and `LANGUAGES` (looked up at each use). None: the default
/// registry, without a call of Python's. Throws ImportError when a name is missing, or when
/// another module has been bound in this process.
void bind_registry(nanobind::object module);

}  // namespace path_filter::python

#endif  // PYTHON_SRC_REGISTRY_BRIDGE_H_

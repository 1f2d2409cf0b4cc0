// The language registry that the component's tests are linked with: exactly the
// content that they state, and failures on demand.

#ifndef TESTS_TEST_REGISTRY_H_
#define TESTS_TEST_REGISTRY_H_

#include <atomic>

namespace test_registry {

/// How often `test_dir_names` has been asked.
extern std::atomic<int> test_dir_names_calls;

/// While true, every function of the registry throws std::runtime_error("registry
/// failure").
extern std::atomic<bool> failing;

}  // namespace test_registry

#endif  // TESTS_TEST_REGISTRY_H_

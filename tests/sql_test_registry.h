// The language registry of sql_test: a few languages, and what a test needs to see of how
// it is asked.

#ifndef TESTS_SQL_TEST_REGISTRY_H_
#define TESTS_SQL_TEST_REGISTRY_H_

#include <atomic>

namespace sql_test_registry {

/// How often a file name has been classified. Classifying "explode.py" throws
/// std::runtime_error("registry exploded"), "memory.py" std::bad_alloc.
inline std::atomic<int> classifications = 0;

}  // namespace sql_test_registry

#endif  // TESTS_SQL_TEST_REGISTRY_H_

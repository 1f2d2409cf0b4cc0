// What the tests of the component share: its log, the language registry that they are
// linked with, and a directory of files.

#ifndef TESTS_SUPPORT_H_
#define TESTS_SUPPORT_H_

#include <atomic>
#include <mutex>
#include <string>

#include "tests/temp_tree.h"
#include "utils/path_filter/base/logger.h"

/// Whether `T{value...}` compiles.
template <typename T, typename... Value>
concept MadeFrom = requires(Value... value) {
  T{value...};
};

/// The component's log during one test.
class CapturedLog {
 public:
  CapturedLog() {
    path_filter::logger->set_sink([this](const path_filter::Warning& warning) {
      const std::lock_guard hold(_lock);
      _text += warning.message() + "\n";
    });
  }
  ~CapturedLog() { path_filter::logger->set_sink(nullptr); }
  CapturedLog(const CapturedLog&) = delete;

  const std::string& text() const { return _text; }

 private:
  std::mutex _lock;
  std::string _text;
};

/// The registry has exactly the content that the tests state (test_registry.cpp).
/// Classifying "explode.py" throws std::runtime_error("registry exploded"), "memory.py"
/// std::bad_alloc.
namespace test_registry {

inline std::atomic<int> test_dir_names_calls = 0, test_file_globs_calls = 0, classifications = 0;
/// While true, every function throws std::runtime_error("registry failure").
inline std::atomic<bool> failing = false;

}  // namespace test_registry

#endif  // TESTS_SUPPORT_H_

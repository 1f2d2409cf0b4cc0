// What the tests of the component share: its log, the language registry that they are
// linked with, and a directory of files.

#ifndef TESTS_SUPPORT_H_
#define TESTS_SUPPORT_H_

#include <spdlog/logger.h>
#include <spdlog/sinks/ostream_sink.h>

#include <atomic>
#include <string>
#include <vector>

#include "tests/temp_tree.h"
#include "utils/path_filter/path_rules.h"

/// Whether `T{value...}` compiles.
template <typename T, typename... Value>
concept MadeFrom = requires(Value... value) {
  T{value...};
};

/// The component's log during one test.
class CapturedLog {
 public:
  CapturedLog() : _before(path_filter::logger->sinks()) {
    auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(_stream);
    sink->set_pattern("%n %l %v");
    path_filter::logger->sinks() = {std::move(sink)};
  }
  ~CapturedLog() { path_filter::logger->sinks() = _before; }
  CapturedLog(const CapturedLog&) = delete;

  std::string text() const { return _stream.str(); }

 private:
  std::ostringstream _stream;
  std::vector<spdlog::sink_ptr> _before;
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

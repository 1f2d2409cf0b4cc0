// The component's log during one test.

#ifndef TESTS_CAPTURED_LOG_H_
#define TESTS_CAPTURED_LOG_H_

#include <spdlog/logger.h>
#include <spdlog/sinks/ostream_sink.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "utils/path_filter/path_rules.h"

class CapturedLog {
 public:
  CapturedLog() : _before(path_filter::logger->sinks()) {
    auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(_stream);
    sink->set_pattern("%n %l %v");
    path_filter::logger->sinks() = {std::move(sink)};
  }
  ~CapturedLog() { path_filter::logger->sinks() = _before; }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::string text() const { return _stream.str(); }

 private:
  std::ostringstream _stream;
  std::vector<spdlog::sink_ptr> _before;
};

#endif  // TESTS_CAPTURED_LOG_H_

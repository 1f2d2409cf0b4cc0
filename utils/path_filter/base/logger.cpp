#include "utils/path_filter/base/logger.h"

#include <utility>

#include "utils/path_filter/base/platform.h"
#include "utils/path_filter/base/quoting.h"

namespace path_filter {

std::string Warning::message() const {
  std::string text;
  std::size_t next = 0;
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%' || next == arguments.size()) {
      text += format[at];
      continue;
    }
    ++at;  // over the letter: an argument knows its type
    const Argument& argument = arguments[next++];
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
      text += std::to_string(*number);
    } else {
      text += internal::printable(std::get<std::string_view>(argument));
    }
  }
  return text;
}

std::string_view Logger::name() const { return "utils.path_filter"; }

void Logger::set_sink(Sink sink) {
  auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const std::lock_guard hold(_lock);
  _sink.swap(shared);
}

void Logger::warn(std::string_view format,
                  std::initializer_list<Warning::Argument> arguments) const {
  const Warning warning{format, {arguments.begin(), arguments.size()}};
  std::shared_ptr<const Sink> sink;
  {
    const std::lock_guard hold(_lock);
    sink = _sink;
  }
  if (sink) {
    (*sink)(warning);
    return;
  }
  const std::string line = std::string(name()) + ": warning: " + warning.message() + "\n";
  internal::write_error(line);
}

namespace internal {

Logger& loaded_logger() {
  // Never destroyed: a thread may still warn while the process ends.
  static Logger& loaded = *new Logger;
  return loaded;
}

}  // namespace internal
}  // namespace path_filter

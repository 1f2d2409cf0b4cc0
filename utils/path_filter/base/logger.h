// The component's one logger. It is used for warnings only, of which there are two: a size
// limit in the configuration that cannot be used, and an ignore file that cannot be read.
//
//   path_filter::logger->set_sink([](const path_filter::Warning& warning) {
//     host_log.warn(warning.message());
//   });
//
// Without a sink a warning is one line on stderr.

#ifndef UTILS_PATH_FILTER_BASE_LOGGER_H_
#define UTILS_PATH_FILTER_BASE_LOGGER_H_

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/base/loaded.h"

namespace path_filter {

/// One warning: a format as printf takes it, and its arguments apart, for a log that keeps
/// them apart or writes them its own way. All it refers to lives as long as the call of the
/// sink.
struct Warning {
  /// A path is its own bytes, which message() quotes where they are not printable.
  using Argument = std::variant<std::int64_t, std::string_view>;

  /// Has a "%d", "%s" or "%r" for each argument. That of "%r" is a value as the
  /// configuration file would write it.
  std::string_view format;
  std::span<const Argument> arguments;

  /// The format with its arguments in place, without a line end.
  PATH_FILTER_EXPORT std::string message() const;
};

class PATH_FILTER_EXPORT Logger {
 public:
  using Sink = std::function<void(const Warning&)>;

  /// "utils.path_filter".
  std::string_view name() const;

  /// Where warnings go from now on; null: to stderr, each in one write. Any thread may call
  /// it. The sink is called from any thread, by several at once, and under no lock: what it
  /// throws passes through the question that warns. A sink that was replaced may still be
  /// running on another thread, and is destroyed when that ends: it owns what it needs.
  void set_sink(Sink sink);

  void warn(std::string_view format, std::initializer_list<Warning::Argument> arguments) const;

 private:
  mutable std::mutex _lock;  // of _sink: held to copy it
  std::shared_ptr<const Sink> _sink;
};

namespace internal {

PATH_FILTER_EXPORT Logger& loaded_logger();

}  // namespace internal

/// Ready at any time, static initialisation and the end of the process included.
inline constexpr internal::Loaded<Logger, internal::loaded_logger> logger{};

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_BASE_LOGGER_H_

// Standard output as the program's commands use it: buffered, quiet when a pipe closes,
// loud when a disk is full; and paths as text.

#ifndef PROGRAM_OUTPUT_H_
#define PROGRAM_OUTPUT_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/text.h"

namespace program {

/// Standard output. When the reader closes the pipe, what is written goes nowhere and
/// `closed` says so; any other failure throws std::system_error.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  Output& operator<<(std::string_view text) {
    _buffer += text;
    if (_buffer.size() >= BUFFER_BYTES) flush();
    return *this;
  }
  Output& operator<<(char character) { return *this << std::string_view(&character, 1); }

  void flush();
  bool closed() const { return _closed; }

 private:
  static constexpr std::size_t BUFFER_BYTES = 64 * 1024;
  std::string _buffer;
  bool _closed = false;
};

using path_filter::internal::is_printable;
using path_filter::internal::printable;

/// `number` with a comma between groups of three digits.
std::string grouped(std::size_t number);

using Json = nlohmann::ordered_json;

/// {"path": ...}; a path that is not valid UTF-8 reads with U+FFFD there and has its
/// own bytes, as hexadecimal digits, under "path_hex".
Json json_of_path(std::string_view path);

/// Adds the fields of the decision on `path`, and whether the path is test code.
void add_decision(Json& object, std::string_view path, const path_filter::Decision& decision);

/// One line, without the line's end: what a terminal would obey is escaped. Never fails for
/// the sake of invalid UTF-8.
std::string json_line(const Json& object);

}  // namespace program

#endif  // PROGRAM_OUTPUT_H_

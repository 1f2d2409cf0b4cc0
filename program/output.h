// Standard output as the program's commands use it: buffered, quiet when a pipe closes,
// loud when a disk is full, in colour for a person; and paths as text.

#ifndef PROGRAM_OUTPUT_H_
#define PROGRAM_OUTPUT_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/index_scope/index_scope.h"

namespace program {

/// Prints a problem on standard error, as one line in one write, named as this program's.
void complain(std::string_view problem);
void warn(std::string_view problem);

enum class Color { automatic, always, never };

/// What a text is, where colours are on.
enum class Style { in, out, heading };

/// Standard output. When the reader closes the pipe, what is written goes nowhere and
/// `closed` says so; any other failure throws std::system_error.
class Output {
 public:
  /// Colours are on when they are asked for, or by themselves on a terminal that is not dumb,
  /// unless NO_COLOR is set (https://no-color.org).
  explicit Output(Color color = Color::never);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  Output& operator<<(std::string_view text) {
    _buffer += text;
    if (_buffer.size() >= BUFFER_BYTES) flush();
    return *this;
  }
  Output& operator<<(char character) { return *this << std::string_view(&character, 1); }

  /// `text`, and the colour of the style around it.
  std::string styled(Style style, std::string_view text) const;

  void flush();
  bool closed() const { return _closed; }

 private:
  static constexpr std::size_t BUFFER_BYTES = 64 * 1024;
  std::string _buffer;
  bool _closed = false;
  bool _colored = false;
};

using path_filter::internal::c_quoted;
using path_filter::internal::is_plain;
using path_filter::internal::is_printable;
using path_filter::internal::printable;

/// A path, a pattern or a source as a column of text: in double quotes, as git writes it, when
/// a terminal would obey some of it, or when it holds a quote or a backslash.
std::string column(std::string_view text);

/// Makes a column of the end of `text`, from `begin` on: nearly all paths stay as they are, and
/// are not copied once more.
void make_column(std::string& text, std::size_t begin);

/// What column() made of a text, from a line that begins with a double quote. Absent when
/// that is not what git writes.
std::optional<std::string> unquoted(std::string_view line);

/// A size as a person reads it: "512 B", "1.2 MiB".
std::string readable_size(std::size_t bytes);

/// `number` with a comma between groups of three digits.
std::string grouped(std::size_t number);

using Json = nlohmann::ordered_json;

/// A JSON object on one line, for an answer that is given for each file: what a terminal would
/// obey is escaped, invalid UTF-8 reads as U+FFFD. Only texts that are not plain ASCII are left to
/// the library, which takes three times as long as the rest of a question for a whole object.
class JsonLine {
 public:
  JsonLine() { _text.reserve(256); }  // most lines

  JsonLine& add(std::string_view key, std::string_view value);
  JsonLine& add_json(std::string_view key, const Json& value);

  /// "path"; and the path's own bytes, as hexadecimal digits, under "path_hex" when it is not
  /// valid UTF-8.
  JsonLine& add_path(std::string_view path);

  /// The fields of the decision on `path`, which is added already, and whether it is test code.
  JsonLine& add_decision(std::string_view path, const path_filter::Decision& decision);

  /// The line without its end. No field is added after it.
  std::string_view text() { return _text += '}'; }

 private:
  void add_key(std::string_view key);
  void append(std::string_view value);
  void append_json(const Json& value);

  std::string _text = "{";
};

}  // namespace program

#endif  // PROGRAM_OUTPUT_H_

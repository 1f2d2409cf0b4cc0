#include "program/output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <system_error>

#include "program/system.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/base/words.h"
#include "utils/path_filter/test_code/test_code.h"

namespace program {

void complain(std::string_view problem) {
  write_all(standard_error(), "path-filter: " + std::string(problem) + "\n");
}

void warn(std::string_view problem) { complain("warning: " + std::string(problem)); }

Output::Output(Color color) : _colored(color == Color::always) {
  if (color == Color::automatic && variable("NO_COLOR").empty()) {
    _colored = obeys_escapes(standard_output());
  }
}

std::string Output::styled(Style style, std::string_view text) const {
  if (!_colored) return std::string(text);
  const std::string_view on = style == Style::in    ? "\033[32m"
                              : style == Style::out ? "\033[31m"
                                                    : "\033[1m";
  return std::string(on) + std::string(text) + "\033[0m";
}

void Output::flush() {
  const auto error = _closed ? std::error_code() : write_all(standard_output(), _buffer);
  _buffer.clear();
  if (!error) return;
  if (error != std::errc::broken_pipe) throw std::system_error(error, "cannot write the output");
  _closed = true;
}

std::string column(std::string_view text) {
  std::string out(text);
  make_column(out, 0);
  return out;
}

void make_column(std::string& text, std::size_t begin) {
  const std::string_view field = std::string_view(text).substr(begin);
  if (is_plain(field)) return;
  if (field.find_first_of("\"\\") == field.npos && is_printable(field)) return;
  text.replace(begin, text.npos, c_quoted(field));
}

std::optional<std::string> unquoted(std::string_view line) {
  constexpr std::string_view LETTERS = "abtnvfr\"\\";
  constexpr std::string_view MEANINGS = "\a\b\t\n\v\f\r\"\\";
  std::string text;
  for (std::size_t at = 1; at < line.size(); ++at) {
    if (line[at] == '"') return at + 1 == line.size() ? std::optional(text) : std::nullopt;
    if (line[at] != '\\') {
      text += line[at];
      continue;
    }
    const std::string_view escape = line.substr(++at);
    const std::size_t letter = escape.empty() ? LETTERS.npos : LETTERS.find(escape[0]);
    if (letter != LETTERS.npos) {
      text += MEANINGS[letter];
      continue;
    }
    const auto digits = std::min(escape.find_first_not_of("01234567"), escape.size());
    if (digits < 3 || escape[0] > '3') return std::nullopt;
    text += static_cast<char>((escape[0] - '0') * 64 + (escape[1] - '0') * 8 + (escape[2] - '0'));
    at += 2;
  }
  return std::nullopt;
}

std::string readable_size(std::size_t bytes) {
  constexpr std::array<std::string_view, 4> UNITS{"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  auto size = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  // What would be written as 1024.0 is one of the next unit.
  for (; size >= 1023.95 && unit + 1 < UNITS.size(); ++unit) size /= 1024;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f ", size);
  return text.data() + std::string(UNITS[unit]);
}

std::string grouped(std::size_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > 3;) digits.insert(at -= 3, 1, ',');
  return digits;
}

void JsonLine::add_key(std::string_view key) {
  if (_text.size() > 1) _text += ',';
  _text += '"';
  _text += key;
  _text += "\":";
}

void JsonLine::append(std::string_view value) {
  if (!is_plain(value)) return append_json(Json(value));
  _text += '"';
  _text += value;
  _text += '"';
}

void JsonLine::append_json(const Json& value) {
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (!is_printable(text)) text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  _text += text;
}

JsonLine& JsonLine::add(std::string_view key, std::string_view value) {
  add_key(key);
  append(value);
  return *this;
}

JsonLine& JsonLine::add_json(std::string_view key, const Json& value) {
  add_key(key);
  append_json(value);
  return *this;
}

JsonLine& JsonLine::add_path(std::string_view path) {
  add("path", path);
  if (!path_filter::internal::is_ascii(path) && path_filter::internal::find_invalid_utf8(path)) {
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string hex;
    for (const char character : path) {
      hex += DIGITS[static_cast<unsigned char>(character) >> 4];
      hex += DIGITS[static_cast<unsigned char>(character) & 15];
    }
    add("path_hex", hex);
  }
  return *this;
}

JsonLine& JsonLine::add_decision(std::string_view path, const path_filter::Decision& decision) {
  _text += decision ? R"(,"indexable":true,"kind":)" : R"(,"indexable":false,"kind":)";
  decision.kind() ? append(to_string(*decision.kind())) : void(_text += "null");
  add("reason", decision.reason());
  _text += R"(,"language":)";
  decision.language() ? append(*decision.language()) : void(_text += "null");
  _text += path_filter::is_test_path(path) ? R"(,"test":true)" : R"(,"test":false)";
  return *this;
}

}  // namespace program

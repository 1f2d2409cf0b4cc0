#include "utils/path_filter/base/quoting.h"

#include <cstddef>
#include <cstdint>

#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/base/words.h"

namespace path_filter::internal {
namespace {

/// Whether a terminal shows the character and does nothing else.
bool shows_as_itself(char32_t code) {
  const auto within = [&](char32_t first, char32_t last) { return first <= code && code <= last; };
  if (code < 0x20 || within(0x7F, 0x9F) || code >= 0x110000U) return false;
  return code != 0x061C && !within(0x200E, 0x200F) && !within(0x2028, 0x202E) &&
         !within(0x2066, 0x2069);
}

/// `text` between `quote`s, a backslash before those and before itself: what does not show as
/// itself by the letter for it, or else byte by byte by `append_byte`.
template <typename AppendByte>
std::string in_quotes(std::string_view text, char quote, std::string_view named,
                      std::string_view letters, AppendByte append_byte) {
  std::string out(1, quote);
  for (std::size_t at = 0; at < text.size();) {
    const Character unit = character_at(text, at);
    const std::string_view bytes = text.substr(at, unit.size);
    at += unit.size;
    const auto name = named.find(bytes);
    if (bytes[0] == '\\' || bytes[0] == quote) {
      out += '\\';
      out += bytes;
    } else if (shows_as_itself(unit.code)) {
      out += bytes;
    } else if (name != std::string_view::npos) {
      out += '\\';
      out += letters[name];
    } else {
      for (const char byte : bytes) {
        out += '\\';
        append_byte(out, static_cast<unsigned char>(byte));
      }
    }
  }
  out += quote;
  return out;
}

}  // namespace

bool is_plain(std::string_view text) {
  constexpr std::size_t WORD = sizeof EACH_BYTE;
  std::uint64_t odd = 0;  // the highest bit of a byte that is not plain, and of perhaps others
  const auto look_at = [&](std::uint64_t word) {
    // Only a byte that is not ASCII carries into the next, and is found by itself.
    const auto differs = [&](unsigned char byte) {
      return (word ^ byte * EACH_BYTE) + 0x7F * EACH_BYTE;
    };
    odd |= word | ~(word + (0x80 - ' ') * EACH_BYTE) | (word + (0x80 - 0x7F) * EACH_BYTE) |
           ~(differs('"') & differs('\\'));
  };
  if (text.size() < WORD) {
    look_at(word_at(text, 0) | (' ' * EACH_BYTE << (8 * text.size())));
  } else {
    for (std::size_t at = 0; at + WORD <= text.size(); at += WORD) look_at(word_at(text, at));
    look_at(word_at(text, text.size() - WORD));
  }
  return word_is_ascii(odd);
}

bool is_printable(std::string_view text) {
  if (is_plain(text)) return true;
  for (std::size_t at = 0; at < text.size();) {
    const Character unit = character_at(text, at);
    if (!shows_as_itself(unit.code)) return false;
    at += unit.size;
  }
  return true;
}

std::string quoted(std::string_view text) {
  static constexpr std::string_view HEX = "0123456789abcdef";
  return in_quotes(text, '\'', "\n\r\t", "nrt", [](std::string& out, unsigned char byte) {
    out += {'x', HEX[byte >> 4], HEX[byte & 15]};
  });
}

std::string c_quoted(std::string_view text) {
  return in_quotes(text, '"', "\a\b\t\n\v\f\r", "abtnvfr",
                   [](std::string& out, unsigned char byte) {
                     for (const int shift : {6, 3, 0}) {
                       out += static_cast<char>('0' + ((byte >> shift) & 7));
                     }
                   });
}

std::string printable(std::string_view text) {
  return is_printable(text) ? std::string(text) : c_quoted(text);
}

}  // namespace path_filter::internal

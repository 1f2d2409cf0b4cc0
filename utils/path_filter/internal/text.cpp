#include "utils/path_filter/internal/text.h"

#include <utf8proc.h>

#include <array>
#include <cstdint>

namespace path_filter::internal {
namespace {

constexpr std::string_view REPLACEMENT_CHARACTER = "\xEF\xBF\xBD";

/// The codes from here on are no characters.
constexpr char32_t NO_CHARACTER = 0x110000;

/// One unit of text: a character, or a byte that belongs to none.
struct Unit {
  char32_t code;  // the character, or NO_CHARACTER plus the byte
  std::size_t size;
};

bool is_ascii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

/// The length and code of the character at the front of `text`; absent when the
/// bytes there are not valid UTF-8. `text` is not empty.
std::optional<Unit> decode(std::string_view text) {
  if (is_ascii(text.front())) return Unit{static_cast<unsigned char>(text.front()), 1};
  utf8proc_int32_t code = -1;
  const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &code);
  if (size <= 0 || code < 0) return std::nullopt;
  return Unit{static_cast<char32_t>(code), static_cast<std::size_t>(size)};
}

Unit unit_at(std::string_view text, std::size_t at) {
  const std::string_view rest = text.substr(at);
  return decode(rest).value_or(Unit{NO_CHARACTER + static_cast<unsigned char>(rest.front()), 1});
}

/// Whether some bytes after `begin` would make it a valid character: it is enough to
/// try the least and the greatest continuation, as the allowed ones are a range.
bool begins_character(std::string_view begin) {
  for (const char continuation : {'\x80', '\xBF'}) {
    std::array<char, 4> whole{};
    whole.fill(continuation);
    begin.copy(whole.data(), begin.size());
    const auto unit = decode({whole.data(), whole.size()});
    if (unit && unit->size > begin.size()) return true;
  }
  return false;
}

bool is_space(char32_t code) {
  if (code >= NO_CHARACTER) return false;
  const utf8proc_property_t* property = utf8proc_get_property(static_cast<utf8proc_int32_t>(code));
  switch (property->bidi_class) {
    case UTF8PROC_BIDI_CLASS_B:
    case UTF8PROC_BIDI_CLASS_S:
    case UTF8PROC_BIDI_CLASS_WS:
      return true;
    default:
      return property->category == UTF8PROC_CATEGORY_ZS;
  }
}

/// How a character counts where the end of a word is looked for.
enum class Casing : unsigned char { none, cased, ignorable };

/// Unicode's properties Case_Ignorable and Cased, by what they are derived from. A
/// character that has both is passed over, as ICU does it.
Casing casing_of(char32_t code) {
  if (code >= NO_CHARACTER) return Casing::none;
  // The punctuation inside words (Word_Break: Single_Quote, MidLetter and MidNumLet).
  constexpr std::u32string_view INSIDE_WORDS =
      U"'.:\u00B7\u0387\u055F\u05F4\u2018\u2019\u2024\u2027\uFE13\uFE52\uFE55\uFF07\uFF0E\uFF1A";
  if (INSIDE_WORDS.find(code) != std::u32string_view::npos) return Casing::ignorable;
  const auto character = static_cast<utf8proc_int32_t>(code);
  switch (utf8proc_category(character)) {
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_ME:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_SK:
      return Casing::ignorable;
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
      return Casing::cased;
    default:
      break;
  }
  // Cased beside the letters: the Roman numerals and circled letters, which have another
  // case, and the ordinal indicators and squared letters, which have none.
  const bool other = utf8proc_tolower(character) != character ||
                     utf8proc_toupper(character) != character || code == U'\u00AA' ||
                     code == U'\u00BA' || (code >= U'\U0001F130' && code <= U'\U0001F149') ||
                     (code >= U'\U0001F150' && code <= U'\U0001F169') ||
                     (code >= U'\U0001F170' && code <= U'\U0001F189');
  return other ? Casing::cased : Casing::none;
}

/// Whether a cased character follows at the front of `text` or after what is ignorable.
bool continues_word(std::string_view text) {
  Casing casing = Casing::ignorable;
  while (casing == Casing::ignorable && !text.empty()) {
    const Unit unit = unit_at(text, 0);
    casing = casing_of(unit.code);
    text.remove_prefix(unit.size);
  }
  return casing == Casing::cased;
}

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
    const Unit unit = unit_at(text, at);
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

/// Whether a character of a pattern can be more than itself, or belong to what is.
bool is_special(char character) {
  static constexpr auto SPECIAL = [] {
    std::array<bool, 256> special{};
    for (const char byte : {'*', '?', '[', ']'}) special[static_cast<unsigned char>(byte)] = true;
    return special;
  }();
  return SPECIAL[static_cast<unsigned char>(character)];
}

/// Matches `code` against the set whose inside is `set` ("!" included).
bool set_matches(std::string_view set, char32_t code) {
  const bool negated = set.starts_with('!');
  std::size_t at = negated ? 1 : 0;
  bool found = false;
  while (at < set.size()) {
    const Unit low = unit_at(set, at);
    at += low.size;
    if (at + 1 < set.size() && set[at] == '-') {
      const Unit high = unit_at(set, at + 1);
      at += 1 + high.size;
      found = found || (low.code <= code && code <= high.code);
    } else {
      found = found || low.code == code;
    }
  }
  return found != negated;
}

/// The offset of the "]" that closes the "[" at `open`, or npos. `last` is where the
/// pattern's last "]" is: a row of brackets that nothing closes is not searched anew
/// for each of them.
std::size_t closing_bracket(std::string_view pattern, std::size_t open, std::size_t last) {
  if (last == std::string_view::npos || last < open) return std::string_view::npos;
  std::size_t at = open + 1;
  if (at < pattern.size() && pattern[at] == '!') ++at;
  // A "]" in the first place of a set is a member of it.
  return pattern.find(']', at + 1);
}

}  // namespace

std::string_view trim(std::string_view text) {
  while (!text.empty()) {
    const Unit first = unit_at(text, 0);
    if (!is_space(first.code)) break;
    text.remove_prefix(first.size);
  }
  while (!text.empty()) {
    std::size_t last = text.size() - 1;
    while (last > 0 && text.size() - last < 4 && (text[last] & '\xC0') == '\x80') --last;
    const Unit unit = unit_at(text, last);
    if (last + unit.size != text.size() || !is_space(unit.code)) break;
    text.remove_suffix(unit.size);
  }
  return text;
}

std::size_t first_character_size(std::string_view text) { return unit_at(text, 0).size; }

void append_lower(std::string_view text, std::string& out) {
  if (is_ascii(text)) {
    for (const char byte : text) {
      out += byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    }
    return;
  }
  bool in_word = false;
  while (!text.empty()) {
    const Unit unit = unit_at(text, 0);
    const std::string_view character = text.substr(0, unit.size);
    text.remove_prefix(unit.size);
    if (unit.code >= NO_CHARACTER) {
      out += character;
    } else if (unit.code == U'\u0130') {
      out += "i\u0307";
    } else if (unit.code == U'\u03A3' && in_word && !continues_word(text)) {
      out += "\u03C2";
    } else {
      std::array<utf8proc_uint8_t, 4> lower{};
      const auto size = utf8proc_encode_char(
          utf8proc_tolower(static_cast<utf8proc_int32_t>(unit.code)), lower.data());
      out.append(reinterpret_cast<const char*>(lower.data()), static_cast<std::size_t>(size));
    }
    const Casing casing = casing_of(unit.code);
    if (casing != Casing::ignorable) in_word = casing == Casing::cased;
  }
}

std::optional<std::size_t> find_invalid_utf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto unit = decode(text.substr(at));
    if (!unit) return at;
    at += unit->size;
  }
  return std::nullopt;
}

std::string replace_invalid_utf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t valid = find_invalid_utf8(text).value_or(text.size());
    out.append(text.substr(0, valid));
    text.remove_prefix(valid);
    if (text.empty()) break;
    std::size_t invalid = 1;
    while (invalid < 3 && invalid < text.size() && begins_character(text.substr(0, invalid + 1))) {
      ++invalid;
    }
    out.append(REPLACEMENT_CHARACTER);
    text.remove_prefix(invalid);
  }
  return out;
}

bool is_plain(std::string_view text) {
  constexpr std::uint64_t EACH = 0x0101010101010101;
  constexpr std::size_t WORD = sizeof EACH;
  std::uint64_t odd = 0;  // the highest bit of a byte that is not plain, and of perhaps others
  const auto look_at = [&](std::uint64_t word) {
    // Only a byte that is not ASCII carries into the next, and is found by itself.
    const auto differs = [&](unsigned char byte) { return (word ^ byte * EACH) + 0x7F * EACH; };
    odd |= word | ~(word + (0x80 - ' ') * EACH) | (word + (0x80 - 0x7F) * EACH) |
           ~(differs('"') & differs('\\'));
  };
  if (text.size() < WORD) {
    look_at(word_at(text, 0) | (' ' * EACH << (8 * text.size())));
  } else {
    for (std::size_t at = 0; at + WORD <= text.size(); at += WORD) look_at(word_at(text, at));
    look_at(word_at(text, text.size() - WORD));
  }
  return word_is_ascii(odd);
}

bool is_printable(std::string_view text) {
  if (is_plain(text)) return true;
  for (std::size_t at = 0; at < text.size();) {
    const Unit unit = unit_at(text, at);
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

bool shell_glob_matches(std::string_view pattern, std::string_view text) {
  // Nearly every glob is literals around one star, and nearly every text differs from
  // them in the first bytes of one end: a few comparisons decide.
  std::size_t head = 0;
  for (; head < pattern.size() && !is_special(pattern[head]); ++head) {
    if (head == text.size() || pattern[head] != text[head]) return false;
  }
  if (head == pattern.size()) return text.size() == head;
  pattern.remove_prefix(head);
  text.remove_prefix(head);
  std::size_t tail = 0;
  for (; !is_special(pattern[pattern.size() - 1 - tail]); ++tail) {
    if (tail == text.size() || pattern[pattern.size() - 1 - tail] != text[text.size() - 1 - tail]) {
      return false;
    }
  }
  if (pattern.front() == '*' && tail == pattern.size() - 1) return true;

  // Only the last star met is ever taken back: it can take over whatever an earlier
  // one would have had to match.
  constexpr std::size_t NONE = std::string_view::npos;
  const std::size_t last_bracket = pattern.rfind(']');
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = NONE;    // the pattern after the last star
  std::size_t star_text = 0;  // where the text after that star's run begins
  for (;;) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = ++p;
      star_text = t;
      continue;
    }
    if (t == text.size()) return p == pattern.size();
    bool matches = false;
    if (p < pattern.size()) {
      const Unit unit = unit_at(text, t);
      std::size_t width = 1;
      if (pattern[p] == '?') {
        matches = true;
      } else if (const std::size_t close =
                     pattern[p] == '[' ? closing_bracket(pattern, p, last_bracket) : NONE;
                 close != NONE) {
        matches = set_matches(pattern.substr(p + 1, close - p - 1), unit.code);
        width = close + 1 - p;
      } else {
        const Unit literal = unit_at(pattern, p);
        matches = literal.code == unit.code;
        width = literal.size;
      }
      if (matches) {
        p += width;
        t += unit.size;
      }
    }
    if (!matches) {
      if (star == NONE) return false;
      p = star;
      star_text += unit_at(text, star_text).size;
      t = star_text;
    }
  }
}

}  // namespace path_filter::internal

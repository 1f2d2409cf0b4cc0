#include "utils/path_filter/base/utf8.h"

#include <utf8proc.h>

#include <array>
#include <cstdint>

#include "utils/path_filter/base/words.h"

namespace path_filter::internal {
namespace {

constexpr std::string_view REPLACEMENT_CHARACTER = "\xEF\xBF\xBD";

/// The character at the front of `text`, which is not empty; absent when the bytes there are not
/// valid UTF-8.
std::optional<Character> decode(std::string_view text) {
  if (static_cast<unsigned char>(text.front()) < 0x80) {
    return Character{static_cast<unsigned char>(text.front()), 1};
  }
  utf8proc_int32_t code = -1;
  const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &code);
  if (size <= 0 || code < 0) return std::nullopt;
  return Character{static_cast<char32_t>(code), static_cast<std::size_t>(size)};
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
    const Character unit = character_at(text, 0);
    casing = casing_of(unit.code);
    text.remove_prefix(unit.size);
  }
  return casing == Casing::cased;
}

}  // namespace

Character character_at(std::string_view text, std::size_t at) {
  const std::string_view rest = text.substr(at);
  return decode(rest).value_or(
      Character{NO_CHARACTER + static_cast<unsigned char>(rest.front()), 1});
}

std::string_view trim(std::string_view text) {
  while (!text.empty()) {
    const Character first = character_at(text, 0);
    if (!is_space(first.code)) break;
    text.remove_prefix(first.size);
  }
  while (!text.empty()) {
    std::size_t last = text.size() - 1;
    while (last > 0 && text.size() - last < 4 && (text[last] & '\xC0') == '\x80') --last;
    const Character unit = character_at(text, last);
    if (last + unit.size != text.size() || !is_space(unit.code)) break;
    text.remove_suffix(unit.size);
  }
  return text;
}

void append_lower(std::string_view text, std::string& out) {
  if (is_ascii(text)) {
    for (const char byte : text) {
      out += byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    }
    return;
  }
  bool in_word = false;
  while (!text.empty()) {
    const Character unit = character_at(text, 0);
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

}  // namespace path_filter::internal

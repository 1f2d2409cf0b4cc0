// The default registry. Its tables are put together by the compiler: nothing is initialised at run
// time, and a lookup takes no lock and no memory.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

#include "utils/language_registry/catalog.h"
#include "utils/language_registry/default_registry.h"
#include "utils/language_registry/text_table.h"

namespace language_registry {
namespace {

// ---- The tables as they are written ------------------------------------------------------------

/// A row of languages.inc. Lists are separated by spaces.
struct LanguageRow {
  std::string_view language;
  std::string_view tier;
  std::string_view extensions;
  std::string_view file_names;
  std::string_view file_name_stems;
};

/// A row of test_conventions.inc.
struct ConventionRow {
  std::string_view language;
  std::string_view globs;
};

constexpr auto language_rows = std::to_array<LanguageRow>({
#include "utils/language_registry/languages.inc"
});

constexpr auto convention_rows = std::to_array<ConventionRow>({
#include "utils/language_registry/test_conventions.inc"
});

constexpr auto lockfile_rows = std::to_array<std::string_view>({
#include "utils/language_registry/lockfiles.inc"
});

constexpr auto secret_rows = std::to_array<std::string_view>({
#include "utils/language_registry/secrets.inc"
});

constexpr auto test_directories = std::to_array<std::string_view>({
#include "utils/language_registry/test_directories.inc"
});

// ---- The tables as they are searched -----------------------------------------------------------

// The last row has no name: it lists what is of no language.
constexpr std::size_t language_count = language_rows.size() - 1;
constexpr std::size_t no_language = language_count;

/// Calls `use(word)` for each word of a list.
template <typename Use>
constexpr void for_each_word(std::string_view list, Use use) {
  while (!list.empty()) {
    const std::string_view word = list.substr(0, list.find(' '));
    if (word.empty()) throw std::logic_error("more than one space");
    use(word);
    list.remove_prefix(std::min(word.size() + 1, list.size()));
  }
}

/// One list per language, one after the other.
template <std::size_t count>
struct WordsByLanguage {
  std::array<std::string_view, count> words{};
  std::array<std::uint16_t, count> language_of{};
  std::array<std::uint16_t, language_rows.size() + 1> begin_of{};

  constexpr std::span<const std::string_view> of(std::size_t language) const {
    const std::size_t begin = begin_of[language];
    return std::span(words).subspan(begin, std::size_t{begin_of[language + 1]} - begin);
  }
};

/// The words of one member of the rows, which are ordered by language.
template <const auto& rows, auto member>
consteval auto words_by_language() {
  constexpr std::size_t count = [] {
    std::size_t words = 0;
    for (const auto& row : rows) for_each_word(row.*member, [&](auto) { ++words; });
    return words;
  }();
  WordsByLanguage<count> result;
  auto row = rows.begin();
  std::size_t end = 0;
  for (std::size_t language = 0; language < language_rows.size(); ++language) {
    for (; row != rows.end() && row->language == language_rows[language].language; ++row) {
      for_each_word((*row).*member, [&](std::string_view word) {
        result.words[end] = word;
        result.language_of[end] = static_cast<std::uint16_t>(language);
        ++end;
      });
    }
    result.begin_of[language + 1] = static_cast<std::uint16_t>(end);
  }
  if (row != rows.end()) throw std::logic_error("a language is unknown or out of order");
  return result;
}

constexpr auto names = [] {
  std::array<std::string_view, language_count> result;
  for (std::size_t i = 0; i < language_count; ++i) result[i] = language_rows[i].language;
  return result;
}();
constexpr auto extensions = words_by_language<language_rows, &LanguageRow::extensions>();
constexpr auto file_names = words_by_language<language_rows, &LanguageRow::file_names>();
constexpr auto stems = words_by_language<language_rows, &LanguageRow::file_name_stems>();
constexpr auto test_globs = words_by_language<convention_rows, &ConventionRow::globs>();

constexpr TextTable name_table(names);
constexpr TextTable extension_table(extensions.words);
constexpr TextTable file_name_table(file_names.words);
constexpr TextTable stem_table(stems.words);

static_assert(std::ranges::is_sorted(names));
static_assert(name_table.longest_size() <= 15);
static_assert(std::ranges::is_sorted(test_directories));

/// Whether a longer extension ends in this one, as ".blade.php" does in ".php".
constexpr auto ends_longer_extension = [] {
  std::array<bool, extensions.words.size()> result{};
  for (const std::string_view extension : extensions.words) {
    if (extension.front() != '.') throw std::logic_error("no leading dot");
    const std::size_t last_dot = extension.rfind('.');
    if (last_dot == 0) continue;
    if (extension.rfind('.', last_dot - 1) != 0) throw std::logic_error("over two dots");
    const std::size_t end = extension_table.find(extension.substr(last_dot));
    if (end != extension_table.npos) result[end] = true;
  }
  return result;
}();

constexpr auto catalog = [] {
  std::array<Language, language_count> result;
  for (std::size_t i = 0; i < language_count; ++i) {
    result[i] = {{language_rows[i].tier, test_globs.of(i)},
                 names[i],
                 extensions.of(i),
                 file_names.of(i),
                 stems.of(i)};
  }
  return result;
}();

/// A lock file's name of which the middle is free.
struct LockfilePattern {
  std::string_view head;
  std::string_view tail;

  constexpr bool matches(std::string_view name) const {
    return name.size() >= head.size() + tail.size() && name.ends_with(tail) &&
           name.starts_with(head);
  }
};

constexpr bool is_pattern(std::string_view name) { return name.find('*') != name.npos; }

constexpr std::size_t lockfile_pattern_count =
    static_cast<std::size_t>(std::ranges::count_if(lockfile_rows, is_pattern));

constexpr auto lockfile_patterns = [] {
  std::array<LockfilePattern, lockfile_pattern_count> result;
  auto next = result.begin();
  for (const std::string_view row : lockfile_rows) {
    if (!is_pattern(row)) continue;
    const std::size_t star = row.find('*');
    *next++ = {row.substr(0, star), row.substr(star + 1)};
  }
  return result;
}();

/// Which bytes the patterns end in. Most names end in none of them.
constexpr auto ends_lockfile_pattern = [] {
  std::array<bool, 256> result{};
  for (const LockfilePattern& pattern : lockfile_patterns) {
    result[static_cast<unsigned char>(pattern.tail.back())] = true;
  }
  return result;
}();

constexpr auto lockfiles = [] {
  std::array<std::string_view, lockfile_rows.size() - lockfile_pattern_count> result;
  std::ranges::remove_copy_if(lockfile_rows, result.begin(), is_pattern);
  return result;
}();

constexpr TextTable lockfile_table(lockfiles);

// ---- The search --------------------------------------------------------------------------------

/// The place in `extensions` of a text in lower case. Kept out of line for the few names that come
/// here not to slow down the others. The text is no longer than the longest extension.
[[gnu::noinline]] std::size_t find_extension_in_lower_case(std::string_view text) {
  // With room for a vector register more: g++ 12 would warn of one that is never written.
  std::array<char, extension_table.longest_size() + 64> lower;
  std::ranges::transform(text, lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return extension_table.find({lower.data(), text.size()});
}

/// The place in `extensions` of a text in its own case or else in lower case.
std::size_t find_extension(std::string_view text, std::uint64_t tail) {
  const std::size_t exact = extension_table.find(text, tail);
  return exact != extension_table.npos ? exact : find_extension_in_lower_case(text);
}

/// The last dot before `end` that can begin an extension, or npos. The dot of a hidden file begins
/// its name instead, and no extension is longer than the longest.
std::size_t find_dot_before(std::size_t end, std::string_view name) {
  constexpr std::size_t longest = extension_table.longest_size();
  const std::size_t begin = name.size() > longest ? name.size() - longest : 1;
  for (std::size_t i = end; i > begin; --i) {
    if (name[i - 1] == '.') return i - 1;
  }
  return std::string_view::npos;
}

/// The last extension of a name and the tail of that.
struct LastExtension {
  std::string_view text;
  std::uint64_t tail;
};

/// The part of a name from its last dot, or "" when no extension can begin there.
LastExtension last_extension(std::string_view name) {
  // Nearly all extensions end within the tail of the name, where all bytes are compared at once: a
  // byte's high bit is set in `dots` when the byte is a dot, and in no other bit.
  const std::uint64_t tail = tail_of(name);
  const std::uint64_t dots = path_filter::internal::places_in_word(tail, '.');
  if (dots != 0) {
    const std::size_t tail_size = std::min<std::size_t>(name.size(), 8);
    const std::size_t index = (63 - static_cast<std::size_t>(std::countl_zero(dots))) / 8;
    const std::size_t begin = name.size() - tail_size + index;
    if (begin == 0) return {};
    return {name.substr(begin), tail >> (8 * index)};
  }
  if (name.size() <= 8) return {};
  const std::size_t begin = find_dot_before(name.size() - 8, name);
  if (begin == name.npos) return {};
  return {name.substr(begin), tail};
}

/// Finds the longest extension that the registry knows. The last part is looked up first all the
/// same: it settles nearly all names, as few extensions have two parts.
std::size_t find_by_extension(std::string_view name) {
  const LastExtension last = last_extension(name);
  if (last.text.empty()) return no_language;
  std::size_t found = find_extension(last.text, last.tail);

  if (found == extension_table.npos || ends_longer_extension[found]) {
    const std::size_t dot = find_dot_before(name.size() - last.text.size(), name);
    if (dot != name.npos) {
      const std::string_view text = name.substr(dot);
      const std::size_t longer = find_extension(text, tail_of(text));
      if (longer != extension_table.npos) found = longer;
    }
  }
  return found == extension_table.npos ? no_language : extensions.language_of[found];
}

std::size_t find_by_stem(std::string_view name) {
  const std::string_view head = name.substr(0, stem_table.longest_size() + 1);
  const std::size_t dot = head.find('.');
  if (dot == head.npos) return no_language;
  const std::size_t stem = stem_table.find(head.substr(0, dot));
  return stem == stem_table.npos ? no_language : stems.language_of[stem];
}

std::size_t find_language(std::string_view name) {
  const std::size_t file_name = file_name_table.find(name);
  if (file_name != file_name_table.npos) return file_names.language_of[file_name];
  const std::size_t language = find_by_extension(name);
  return language != no_language ? language : find_by_stem(name);
}

}  // namespace

// ---- default_registry.h ------------------------------------------------------------------------

namespace default_registry {

const TextSet& test_dir_names() {
  // Never destroyed, so that it can be asked while the process exits.
  static const TextSet& names = *new TextSet(test_directories.begin(), test_directories.end());
  return names;
}

std::span<const std::string_view> test_file_globs() { return test_globs.words; }

const LanguageRecord* classify(std::string_view name) {
  const std::size_t language = find_language(name);
  return language == no_language ? nullptr : &catalog[language];
}

std::optional<std::string_view> detect_language(std::string_view name) {
  const std::size_t language = find_language(name);
  if (language == no_language) return std::nullopt;
  return names[language];
}

bool is_lockfile(std::string_view name) {
  if (name.empty()) return false;
  if (lockfile_table.find(name) != lockfile_table.npos) return true;
  return ends_lockfile_pattern[static_cast<unsigned char>(name.back())] &&
         std::ranges::any_of(lockfile_patterns,
                             [&](const LockfilePattern& pattern) { return pattern.matches(name); });
}

std::string_view tier_of(std::string_view language) {
  const std::size_t found = name_table.find(language);
  return found == name_table.npos ? std::string_view() : language_rows[found].tier;
}

}  // namespace default_registry

// ---- catalog.h ---------------------------------------------------------------------------------

std::span<const Language> languages() { return catalog; }

std::span<const std::string_view> lockfile_names() { return lockfile_rows; }

std::span<const std::string_view> secret_names() { return secret_rows; }

std::span<const std::string_view> test_dir_names() { return test_directories; }

}  // namespace language_registry

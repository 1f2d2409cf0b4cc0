#include "program/suggestion.h"

#include <algorithm>
#include <vector>

#include "utils/language_registry/catalog.h"
#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/utf8.h"

namespace program {
namespace {

/// How many letters are left out, added, replaced or swapped with their neighbour.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> rows(from.size() + 1,
                                             std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1,
                             rows[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
        rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
      }
    }
  }
  return rows[from.size()][to.size()];
}

/// Whether `word` begins as `name` does and has only letters of it, in their order: "ls" of "list".
/// An option is abbreviated by its beginning alone.
bool abbreviates(std::string_view word, std::string_view name) {
  constexpr std::size_t LEAST = 2;
  if (word.starts_with('-')) return word.size() > 2 * LEAST && name.starts_with(word);
  if (word.size() < LEAST || name.empty() || word[0] != name[0]) return false;
  for (const char letter : name) {
    if (!word.empty() && word[0] == letter) word.remove_prefix(1);
  }
  return word.empty();
}

std::string lower(std::string_view text) {
  std::string out;
  path_filter::internal::append_lower(text, out);
  return out;
}

}  // namespace

std::optional<std::string_view> nearest(std::string_view word,
                                        std::span<const std::string_view> known) {
  constexpr std::size_t LONGEST = 64;
  if (word.size() > LONGEST) return std::nullopt;
  const std::string asked = lower(word);
  std::optional<std::string_view> best;
  std::size_t least = 0;
  for (const std::string_view name : known) {
    const std::size_t steps = distance(asked, lower(name));
    if (steps * 4 <= name.size() && (!best || steps < least)) {
      best = name;
      least = steps;
    }
  }
  if (best) return best;
  for (const std::string_view name : known) {
    if (abbreviates(asked, lower(name)) && (!best || name.size() < best->size())) best = name;
  }
  return best;
}

std::optional<std::string_view> nearest_language(std::string_view word) {
  std::vector<std::string_view> names;
  for (const auto& language : language_registry::languages()) names.push_back(language.name);
  auto suggestion = nearest(word, names);
  // "js" is nearer to "j" than to "javascript", but nobody means that.
  if (const auto language = language_registry::detect_language("a." + lower(word));
      language && word.size() > 1 && suggestion != lower(word)) {
    suggestion = language;
  }
  return suggestion;
}

std::string did_you_mean(const std::optional<std::string_view>& suggestion) {
  return suggestion ? "; did you mean '" + std::string(*suggestion) + "'?" : "";
}

}  // namespace program

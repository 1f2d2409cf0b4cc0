// Rule sets: what the index of a rule set answers must be what its lines say one by
// one, by the slow matcher and by rule sets of a single line.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/manual_matcher.h"
#include "utils/path_filter/git_ignore.h"

using path_filter::GitIgnoreSpec;

namespace {

/// The slow matcher takes pattern times path in memory; as much is enough of a text.
constexpr std::size_t LONGEST = 256;

std::optional<bool> by_single_lines(std::span<const std::string_view> lines,
                                    std::string_view path) {
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    const auto include = GitIgnoreSpec::from_lines(std::span(&*line, 1)).check_file(path).include;
    if (include) return include;
  }
  return std::nullopt;
}

bool can_be_asked(std::string_view path) {
  return !path.empty() && path.size() <= LONGEST && !path.starts_with('/') &&
         path.find("//") == std::string_view::npos && path.find('\0') == std::string_view::npos;
}

}  // namespace

/// The input: lines, an empty line, and the paths to ask about, one a line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t rules_end = std::min(input.find("\n\n"), input.size());

  // As a file, whatever its bytes and line ends: nothing may go wrong.
  const auto whole = path_filter::_ignore_rules_in(input);

  const auto lines = fuzz::split(input.substr(0, rules_end));
  if (std::ranges::any_of(lines, [](auto line) { return line.size() > LONGEST; })) return 0;
  const GitIgnoreSpec rules = GitIgnoreSpec::from_lines(lines);
  for (const std::string_view path : fuzz::split(input.substr(rules_end))) {
    if (!can_be_asked(path)) continue;
    if (whole) whole->check_file(path);
    const auto include = rules.check_file(path).include;
    fuzz::check(include == manual::lines_say(lines, path), "as the manual says");
    fuzz::check(include == by_single_lines(lines, path), "as its lines one by one");
  }
  return 0;
}

// Splitting paths, relating them to a root, and the fixed directory rules.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "utils/path_filter/decision.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/path_rules.h"

namespace {

using namespace path_filter;

/// The standard library's components: what is left of a path without the empty ones and
/// the dots; its own answer where two roots differ in their number of slashes.
std::vector<std::string> components(const std::filesystem::path& path) {
  std::vector<std::string> made;
  for (const auto& component : path) {
    if (!component.empty() && component != ".") made.push_back(component.string());
  }
  return made;
}

std::vector<std::string> split(std::string_view path) {
  std::vector<std::string> made;
  internal::PathComponents rest(path);
  while (const auto component = rest.next()) made.emplace_back(*component);
  return made;
}

void check_components(std::string_view path) {
  const auto made = split(path);
  auto expected = components(std::filesystem::path(path));
  // Two leading slashes are a root of their own to POSIX, and one to the library.
  if (!expected.empty() && expected.front().starts_with('/')) {
    const bool two = path.starts_with("//") && !path.starts_with("///");
    expected.front() = two ? "//" : "/";
  }
  fuzz::check(made == expected, "the components are the library's");

  bool skipped = false;
  std::optional<std::string> above;
  for (const std::string& component : made) {
    skipped = skipped || should_skip_directory(component, above);
    above = component;
  }
  fuzz::check(should_skip_path(path) == skipped, "a path is skipped for one of its components");
  fuzz::check(is_indexable_path(path) != skipped, "is_indexable_path is the opposite");
}

void check_relative(const std::string& root, std::string_view path) {
  const IndexScope scope{std::filesystem::path(root)};
  const auto below = scope.relative(path);
  if (!below) return;
  const auto made = split(*below);
  auto whole = split(root);
  whole.insert(whole.end(), made.begin(), made.end());
  fuzz::check(!made.empty() && whole == split(path), "the root and what is below it are the path");
  fuzz::check(std::ranges::find(made, "..") == made.end(), "nothing climbs out");
}

void check_posix(std::string_view path) {
  std::string storage;
  std::string_view posix;
  try {
    posix = _relative_posix(path, storage);
  } catch (const std::invalid_argument&) {
    fuzz::check(!path.empty() && (path[0] == '/' || path[0] == '\\' || path.substr(1, 1) == ":"),
                "an absolute path begins so");
    return;
  }
  fuzz::check(posix.size() == path.size() && posix.find('\\') == std::string_view::npos,
              "only separators change");
  std::string unused;
  fuzz::check(_relative_posix(posix, unused) == posix, "a POSIX path stays");
}

}  // namespace

/// The input: a root, a line end, and a path.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), input.size());
  const std::string root(input.substr(0, end));
  const std::string path(input.substr(std::min(end + 1, input.size())));
  check_components(path);
  check_posix(path);
  check_relative(root, path);
  check_relative(root, root + '/' + path);
  return 0;
}

// The files by which git points to a directory: `.git` and `commondir`, with any bytes
// in them.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "fuzz/check.h"
#include "tests/temp_tree.h"
#include "utils/path_filter/git_ignore.h"
#include "utils/path_filter/internal/text.h"

namespace {

using namespace path_filter;

/// What `target` names from `base`.
std::filesystem::path joined(const std::filesystem::path& base, std::string_view target) {
  return target.empty() ? base : base / target;
}

/// The answer of `ask`, or absent when it finds the file not to be text.
template <typename Ask>
auto unless_invalid(bool valid, Ask ask) -> std::optional<decltype(ask())> {
  try {
    auto answer = ask();
    fuzz::check(valid, "invalid UTF-8 is an error");
    return answer;
  } catch (const std::system_error& error) {
    fuzz::check(!valid && error.code() == std::errc::illegal_byte_sequence,
                "nothing but invalid UTF-8 is an error");
    return std::nullopt;
  }
}

}  // namespace

/// The input: the content of the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  static const TempTree tree;
  tree.write(".git", input);
  tree.write("commondir", input);
  const bool valid = !internal::find_invalid_utf8(input);
  std::string_view text = internal::trim(input);

  if (const auto common = unless_invalid(valid, [] { return _common_dir(tree.root()); })) {
    fuzz::check(*common == joined(tree.root(), text), "the common directory is as the file says");
  }
  if (const auto git = unless_invalid(valid, [] { return _git_dir(tree.root()); })) {
    constexpr std::string_view POINTER = "gitdir:";
    fuzz::check(git->has_value() == text.starts_with(POINTER), "only a pointer names one");
    if (*git) {
      text = internal::trim(text.substr(POINTER.size()));
      fuzz::check(**git == joined(tree.root(), text), "the git directory is as the file says");
    }
  }
  return 0;
}

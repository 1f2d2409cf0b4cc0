#include "utils/path_filter/test_code/test_code.h"

#include <bit>
#include <cstdint>
#include <cstring>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/base/words.h"
#include "utils/path_filter/test_code/shell_glob.h"

namespace path_filter {

using language_registry::LANGUAGES;

namespace {

/// Of a size that the compiler knows, texts are compared without a call: the operator's is a
/// tenth of the time of is_test_path.
bool is_code(std::string_view tier) {
  constexpr std::string_view CODE = "code";
  return tier.size() == CODE.size() && std::memcmp(tier.data(), CODE.data(), CODE.size()) == 0;
}

}  // namespace

bool is_test_path(PathArgument argument) {
  std::string storage;
  const std::string_view path = internal::with_slashes(argument, storage);
  const std::string_view name = internal::last_component(path);
  const language_registry::LanguageRecord* language = LANGUAGES.classify(name);
  if (language == nullptr || !is_code(language->tier)) return false;
  for (const std::string_view glob : language->test_file_globs) {
    if (internal::shell_glob_matches(glob, name)) return true;
  }

  // `name` is a view into `path`: what stands before it are the directories. Without
  // a name there are none.
  const std::string_view directories(
      path.data(), name.empty() ? 0 : static_cast<std::size_t>(name.data() - path.data()));
  const auto& test_dir_names = LANGUAGES.test_dir_names();
  std::string lower;
  std::size_t begin = 0;
  std::uint64_t bytes = 0;  // whether those so far are ASCII
  for (std::size_t at = 0; at < directories.size(); at += sizeof bytes) {
    const std::uint64_t word = internal::word_at(directories, at);
    bytes |= word;
    std::uint64_t slashes = internal::places_in_word(word, '/');
    for (; slashes != 0; slashes &= slashes - 1) {
      const std::size_t end = at + static_cast<std::size_t>(std::countr_zero(slashes)) / 8;
      const std::string_view directory(directories.data() + begin, end - begin);
      begin = end + 1;
      if (internal::word_is_ascii(bytes) && !test_dir_names.may_contain_in_some_case(directory)) {
        continue;
      }
      if (directory.empty() || directory == ".") continue;
      lower.clear();
      internal::append_lower(directory, lower);
      if (test_dir_names.contains(lower)) return true;
    }
  }
  return false;
}

}  // namespace path_filter

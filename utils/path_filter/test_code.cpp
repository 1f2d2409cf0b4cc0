#include "utils/path_filter/test_code.h"

#include <algorithm>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/internal/text.h"

namespace path_filter {

using language_registry::LANGUAGES;

bool is_test_path(PathArgument argument) {
  std::string_view path = argument;
  std::string posix;
  if (path.find('\\') != std::string_view::npos) {
    posix.assign(path);
    std::ranges::replace(posix, '\\', '/');
    path = posix;
  }

  const std::string_view name = internal::last_component(path);
  const language_registry::LanguageRecord* language = LANGUAGES.classify(name);
  if (language == nullptr || language->tier != "code") return false;
  for (const std::string_view glob : language->test_file_globs) {
    if (internal::shell_glob_matches(glob, name)) return true;
  }

  const auto& test_dir_names = LANGUAGES.test_dir_names();
  // `name` is a view into `path`: what stands before it are the directories. Without
  // a name there are none.
  const std::string_view directories =
      name.empty() ? name : path.substr(0, static_cast<std::size_t>(name.data() - path.data()));
  const bool ascii = internal::is_ascii(directories);
  std::string lower;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < directories.size(); ++at) {
    if (directories[at] != '/') continue;
    const std::string_view directory = directories.substr(begin, at - begin);
    begin = at + 1;
    if (ascii && !test_dir_names.may_contain_in_some_case(directory)) continue;
    if (directory.empty() || directory == ".") continue;
    lower.clear();
    internal::append_lower(directory, lower);
    if (test_dir_names.contains(lower)) return true;
  }
  return false;
}

}  // namespace path_filter

// Any bytes as rules, paths, pointer files or text, against slower or standard answers.

#include <cassert>

#include "fuzz/manual_matcher.h"
#include "tests/temp_tree.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/path_rules.h"
#include "utils/path_filter/test_code.h"

using namespace path_filter;
namespace fs = std::filesystem;

static void check_rules(std::string_view rules, const std::string& path) {
  if (path.empty() || ('/' + path).find("//") != path.npos) return;
  std::vector<std::string_view> lines;
  for (; !rules.empty(); rules.remove_prefix(std::min(lines.back().size() + 1, rules.size()))) {
    lines.push_back(rules.substr(0, rules.find('\n')));
    const auto alone = GitIgnoreSpec::from_lines({&lines.back(), 1}).check_file(path).include;
    assert(alone == manual::line_says(lines.back(), path));
  }
  const auto include = GitIgnoreSpec::from_lines(lines).check_file(path).include;
  assert(include == manual::lines_say(lines, path));
}

static void check_path(const std::string& root, const std::string& path) {
  bool skipped = false;
  std::string above;
  for (const fs::path& component : fs::path(path)) {
    if (component.empty() || component == ".") continue;
    skipped = skipped || should_skip_directory(component.native(), above);
    above = component;
  }
  assert(should_skip_path(path) == skipped);
  const auto normal = [](const auto& text) { return fs::path(text + '/').lexically_normal(); };
  const auto below = IndexScope(root).relative(root + '/' + path);
  assert(!below || normal(root + '/' + *below) == normal(root + '/' + path));
  std::string posix = path, storage;
  std::ranges::replace(posix, '\\', '/');
  const bool absolute = posix.starts_with('/') || posix.find(":/") == 1;
  assert(absolute || _relative_posix(path, storage) == posix);
}

static void check_pointers(std::string_view content) {
  static const TempTree tree;
  tree.write(".git", content);
  tree.write("commondir", content);
  const std::string_view text = internal::trim(content);
  try {
    assert(text.empty() || _common_dir(tree.root()) == tree / text);
    const auto git = _git_dir(tree.root());
    assert(git.has_value() == text.starts_with("gitdir:"));
    assert(!git || text.size() == 7 || *git == tree / internal::trim(text.substr(7)));
    assert(!internal::find_invalid_utf8(content));
  } catch (const std::system_error&) {
    assert(internal::find_invalid_utf8(content));
  }
}

static void check_text(std::string_view pattern, std::string_view text) {
  std::string replaced = internal::replace_invalid_utf8(text);
  assert(!internal::find_invalid_utf8(replaced));
  assert(internal::find_invalid_utf8(text).has_value() == (replaced != text));
  assert(internal::trim(internal::trim(text)) == internal::trim(text));
  internal::append_lower(text, replaced);
  is_test_path(text);
  internal::shell_glob_matches(pattern, text);
  if (const auto rules = _ignore_rules_in(text)) rules->check_file("a/b");
}

/// The kind, then two texts with an empty line between them.
extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  const std::string_view input(data, size);
  const std::size_t blank = input.find("\n\n", 1);
  if (blank == input.npos) return 0;
  const std::string front(input.substr(1, blank - 1)), back(input.substr(blank + 2));
  if (input[0] == 'r') check_rules(front, back.c_str());  // no path has a NUL
  if (input[0] == 'p') check_path(front, back);
  if (input[0] == 'g') check_pointers(front);
  if (input[0] == 't') check_text(front, back);
  return 0;
}

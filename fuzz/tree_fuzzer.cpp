// A scope and its walks over a small tree on disk, against a plain model that asks the disk
// anew for each question, rule by rule and directory by directory.

#include <spdlog/logger.h>

#include <cassert>
#include <set>
#include <sstream>

#include "fuzz/manual_matcher.h"
#include "tests/temp_tree.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/path_rules.h"
#include "utils/path_filter/tree_walk.h"

namespace {

namespace fs = std::filesystem;
using namespace path_filter;

const std::string NAMES =  // 16, as there are pieces of content
    "a|b|c|x.py|a\\b|a\\x.py|.git|info/exclude|commondir|.github|x__|__tests__|out|"
    "memory/codebase-index|codebase-index|.gitignore";
const std::string PIECES = "a|b|*|**|/|/|!|\n|\n|\n!|\\|?|[ab]|x.py|gitdir: a|..";

struct Model {
  fs::path top;
  bool in_walk;  // then nothing is read through a link

  std::optional<bool> rules_say(const fs::path& file, const std::string& path) const {
    std::ifstream stream(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return manual::lines_say(std::vector<std::string_view>(lines.begin(), lines.end()), path);
  }

  /// Whether the rules leave out `path` by itself; a directory's ends in "/".
  bool matches(const std::string& path) const {
    std::optional<bool> says;
    fs::path at = path.substr(0, path.find_last_not_of('/') + 1);
    do {
      at = at.parent_path();
      const fs::path file = top / at / ".gitignore";
      std::error_code none;
      if (in_walk ? fs::weakly_canonical(file, none) != file : fs::is_symlink(file, none)) continue;
      says = rules_say(file, path.substr(at.empty() ? 0 : at.native().size() + 1));
    } while (!says && !at.empty());
    const auto git = _git_dir(top);
    if (!says && git) says = rules_say(_common_dir(*git) / "info/exclude", path);
    if (!says && git) says = rules_say(top / "b", path);
    return says.value_or(false);
  }

  /// What leaves out a file, or all of a directory, whose path ends in "/": any rule, or
  /// only git's.
  std::optional<Exclusion> kind(std::string path, bool any = true) const {
    std::ranges::replace(path, '\\', '/');
    bool ignored = false;
    for (std::size_t at = 0; (at = path.find('/', at)) != std::string::npos; ++at) {
      const fs::path way = path.substr(0, at);
      const bool skipped = should_skip_directory(way.filename().native(), way.parent_path());
      if (any && skipped) return Exclusion::directory;
      if (any && way == INDEX_DATA_DIR) return Exclusion::index_data;
      ignored = ignored || matches(path.substr(0, at + 1));
    }
    const bool known = path.ends_with('/') ||
                       language_registry::detect_language(fs::path(path).filename().native());
    if (any && !known) return Exclusion::unknown_language;
    return ignored || matches(path) ? std::optional(Exclusion::gitignore) : std::nullopt;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TempTree tree;
  const fs::path top = tree / "top";
  fs::create_directory(top);
  logger->set_level(spdlog::level::off);
  std::size_t used = 0;
  const auto below = [&](unsigned end) { return used < size ? data[used++] % end : 0; };
  const auto one_of = [&](const std::string& list) {
    std::istringstream words(list);
    std::string word;
    for (unsigned count = below(16) + 1; count > 0; --count) std::getline(words, word, '|');
    return word;
  };
  const auto path = [&] {
    std::string made = one_of(NAMES);
    for (unsigned count = below(4); count > 0; --count) made += '/' + one_of(NAMES);
    return made;
  };
  const auto change = [&] {
    std::error_code failed;  // what is in the way stays there
    fs::path at = top / path();
    const unsigned what = below(8);
    if (what == 0) fs::remove_all(at, failed);
    if (what < 5) at /= ".gitignore";
    fs::create_directories(at.parent_path(), failed);
    if (what == 4 || what == 5) fs::create_symlink(top / path(), at, failed);
    std::ofstream file(at);
    for (unsigned count = below(16); count > 0; --count) file << one_of(PIECES);
  };
  IndexScope scope(top, {.excludes_file = [&](const auto&) { return std::optional(top / "b"); }});
  while (used < size) {
    const unsigned what = below(8);
    const Model model{top, what == 1};
    const std::string asked = path();
    if (what == 0) {
      for (unsigned count = below(16) + 1; count > 0; --count) change();
      scope.refresh();
    } else if (what == 1) {
      std::set<std::string> expected;
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
        const std::string file = entry.path().lexically_relative(top).string();
        const std::string directory = file.substr(0, file.rfind('/') + 1);  // npos + 1 is 0
        std::error_code none;
        const bool is_file = !entry.is_directory(none);
        if (is_file && (directory.empty() || !model.kind(directory))) expected.insert(file);
      }
      Walk walk = scope.walk([](const auto&) { assert(false); });
      for (const std::string& file : walk) {
        assert(expected.erase(file) == 1);
        if (asked == "a") scope.refresh();
        if (asked != "b") assert(walk.decide().kind == model.kind(file));
      }
      assert(expected.empty());
    } else {
      if (what & 1) assert(scope.is_ignored(asked) == model.kind(asked, false).has_value());
      if (what & 2) assert(scope.admits_directory(asked) == !model.kind(asked + '/'));
      if (what & 4) assert(scope.is_indexable(asked).kind == model.kind(asked));
    }
  }
  fs::remove_all(top);
  return 0;
}

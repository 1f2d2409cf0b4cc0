// A scope and its walks over a small tree, against a plain model that asks the disk anew.

#include <spdlog/logger.h>

#include <cassert>
#include <set>

#include "fuzz/manual_matcher.h"
#include "tests/temp_tree.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/path_rules.h"
#include "utils/path_filter/tree_walk.h"

namespace fs = std::filesystem;
using namespace path_filter;

constexpr const char* NAMES[] = {
    "a",    "b",   "c",       "x.py",      "a\\b", "a\\x.py",   ".git",   ".github",
    "info", "x__", "exclude", "commondir", "out",  "__tests__", "memory", "codebase-index"};
constexpr const char* PIECES[] = {"a",  "b",   "*",  "**", "/",    "/",    "!",        "\n",
                                  "\n", "\n!", "\\", "?",  "[ab]", "x.py", "gitdir:a", ".."};

struct Model {
  fs::path top;
  bool in_walk;  // then nothing is read through a link

  std::optional<bool> rules_say(const fs::path& file, const std::string& path) const {
    std::ifstream stream(file);
    const std::vector<std::string> lines(std::istream_iterator<std::string>(stream), {});
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
    return says.value_or(false);
  }

  /// What leaves out a file, or all of a directory, whose path ends in "/".
  std::optional<Exclusion> kind(std::string path, bool by_git_alone = false) const {
    if (path.empty()) return std::nullopt;
    std::ranges::replace(path, '\\', '/');
    bool ignored = false;
    for (std::size_t at = 0; (at = path.find('/', at)) != std::string::npos; ++at) {
      const fs::path way = path.substr(0, at);
      const bool skipped = should_skip_directory(way.filename().native(), way.parent_path());
      if (skipped && !by_git_alone) return Exclusion::directory;
      if (way == INDEX_DATA_DIR && !by_git_alone) return Exclusion::index_data;
      ignored = ignored || matches(path.substr(0, at + 1));
    }
    const std::string name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
    const bool known = name.empty() || language_registry::detect_language(name);
    if (!known && !by_git_alone) return Exclusion::unknown_language;
    return ignored || matches(path) ? std::optional(Exclusion::gitignore) : std::nullopt;
  }
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const TempTree tree;
  const fs::path& top = tree.root();
  logger->set_level(spdlog::level::off);
  std::error_code failed;  // what cannot be done is left
  std::size_t used = 0;
  const auto below = [&](unsigned end) { return used < size ? data[used++] % end : 0; };
  const auto path = [&] {
    std::string made = NAMES[below(std::size(NAMES))];
    while (below(2) == 1) made = made + '/' + NAMES[below(std::size(NAMES))];
    return made;
  };
  IndexScope scope(top);
  while (used < size) {
    const unsigned what = below(10);
    const Model model{top, what == 8};
    const std::string asked = path();
    if (what & 1) assert(scope.is_ignored(asked) == model.kind(asked, true).has_value());
    if (what & 2) assert(scope.admits_directory(asked) == !model.kind(asked + '/'));
    if (what & 4) assert(scope.is_indexable(asked).kind == model.kind(asked));
    if (what == 8) {
      std::set<std::string> expected;
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
        const std::string file = entry.path().lexically_relative(top).string();
        const bool admitted = !model.kind(file.substr(0, file.rfind('/') + 1));
        if (admitted && !entry.is_directory(failed)) expected.insert(file);
      }
      Walk walk = scope.walk([](const auto&) { assert(false); });
      for (const std::string& file : walk) {
        assert(expected.erase(file) == 1);
        if (asked == "a") scope.refresh();
        if (asked != "b") assert(walk.decide().kind == model.kind(file));
      }
      assert(expected.empty());
    }
    if (what != 0 && what != 9) continue;
    const fs::path at = top / (asked + (below(2) == 1 ? "/.gitignore" : ""));
    const unsigned change = below(8);
    fs::create_directories(at.parent_path(), failed);
    if (change == 0) fs::remove_all(at, failed);
    if (change == 1) fs::create_symlink(top / path(), at, failed);
    std::ofstream file(at);
    for (unsigned count = below(16); count > 0; --count) file << PIECES[below(std::size(PIECES))];
    scope.refresh();
  }
  return 0;
}

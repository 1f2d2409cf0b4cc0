// A scope and its walks over a small tree of any bytes, against a plain model that asks the
// disk anew; and the text helpers that every path goes through.

#include <algorithm>
#include <cassert>
#include <set>
#include <utility>
#include <vector>

#include "tests/temp_tree.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/utf8.h"
#include "utils/path_filter/git_ignore/ignore_files.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/path_rules/path_rules.h"
#include "utils/path_filter/test_code/shell_glob.h"
#include "utils/path_filter/test_code/test_code.h"

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

  /// Whether the rules leave out `path` by itself; a directory's ends in "/". What one file's
  /// rules say is proved elsewhere.
  bool matches(const std::string& path) const {
    using Link = internal::Links;
    const auto say = [&](const fs::path& file, Link link, std::size_t skip) {
      const auto rules = _read_ignore_rules(file, link);
      return rules ? rules->check_file(path.substr(skip)).include : std::nullopt;
    };
    std::optional<bool> says;
    fs::path at = path.substr(0, path.find_last_not_of('/') + 1);
    do {
      at = at.parent_path();
      const fs::path file = top / at / ".gitignore";
      std::error_code none;
      if (in_walk && fs::weakly_canonical(file, none) != file) continue;
      says = say(file, Link::refuse, at.empty() ? 0 : at.native().size() + 1);
    } while (!says && !at.empty());
    if (says) return *says;
    const auto git = _git_dir(top);
    return git &&
           say(fs::path(_common_dir(*git)) / "info/exclude", Link::follow, 0).value_or(false);
  }

  /// What leaves out a file, or all of a directory, whose path ends in "/".
  std::optional<Exclusion> kind(std::string path, bool by_git_alone = false) const {
    if (path.empty()) return std::nullopt;
    std::ranges::replace(path, '\\', '/');
    std::vector<std::string> directories;
    for (std::size_t at = 0; (at = path.find('/', at)) != path.npos; ++at) {
      const fs::path& way = directories.emplace_back(path.substr(0, at));
      if (by_git_alone) continue;
      const std::string name = way.native().substr(way.native().rfind('/') + 1);
      if (should_skip_directory(name, way.parent_path())) return Exclusion::directory;
      if (way == INDEX_DATA_DIR) return Exclusion::index_data;
    }
    const std::string name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
    const bool known = name.empty() || language_registry::detect_language(name);
    if (!known && !by_git_alone) return Exclusion::unknown_language;
    const bool ignored = std::ranges::any_of(
        directories, [&](const std::string& directory) { return matches(directory + '/'); });
    return ignored || matches(path) ? std::optional(Exclusion::gitignore) : std::nullopt;
  }
};

/// What `question` answers; absent when a pointer file is not text.
template <typename Question>
static auto outcome(Question question) -> std::optional<decltype(question())> {
  try {
    return question();
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const TempTree tree;
  const fs::path& top = tree.root();
  logger->set_sink([](const Warning& warning) { warning.message(); });
  std::error_code failed;  // what cannot be done is left
  std::size_t used = 0;
  const auto below = [&](unsigned end) { return used < size ? data[used++] % end : 0; };
  const auto name = [&] {
    const unsigned number = below(20);
    if (number < std::size(NAMES)) return std::string(NAMES[number]);
    const auto byte = static_cast<char>(below(256));  // what a name may be, but "\" and a drive
    const bool special = std::string_view("/\\:.\0", 5).find(byte) != std::string_view::npos;
    return std::string(number - 15, special ? 'z' : byte);
  };
  const auto path = [&] {
    std::string made = name();
    while (below(2) == 1) made += '/' + name();
    return made;
  };
  IndexScope scope(top);
  const auto same = [](auto ours, auto models) { assert(outcome(ours) == outcome(models)); };
  while (used < size) {
    const unsigned what = below(10);
    const Model model{top, what == 8};
    const std::string asked = path();
    if (what & 1) {
      same([&] { return scope.is_ignored(asked); },
           [&] { return model.kind(asked, true).has_value(); });
    }
    if (what & 2) {
      same([&] { return scope.admits_directory(asked); }, [&] { return !model.kind(asked + '/'); });
    }
    if (what & 4) {
      same([&] { return scope.is_indexable(asked).kind(); }, [&] { return model.kind(asked); });
      assert(scope.relative((top / asked).native()) == asked);
      const std::string valid = internal::replace_invalid_utf8(asked);
      assert(!internal::find_invalid_utf8(valid) &&
             internal::find_invalid_utf8(asked).has_value() == (valid != asked));
      is_test_path(asked);
      internal::shell_glob_matches(asked, name());
    }
    if (what == 8 && outcome([&] { return model.matches("none"); })) {
      std::set<std::string> expected;
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
        const std::string file = entry.path().lexically_relative(top).string();
        const bool admitted = !model.kind(file.substr(0, file.rfind('/') + 1));
        if (admitted && !entry.is_directory(failed)) expected.insert(file);
      }
      const auto fail = [](const auto&) { assert(false); };
      std::set<std::string> walked;
      for (const std::string& file : scope.walk(fail)) {
        walked.insert(file);
        if (asked == "a") scope.refresh();
      }
      assert(walked == expected);
      DirectoryLister lister(scope, fail);
      for (std::vector pending{ScopeDirectory(scope, "")}; !pending.empty();) {
        lister.list(std::exchange(pending.back(), pending.front()));
        pending.pop_back();
        while (const auto next = lister.next_directory()) pending.push_back(*next);
        while (const std::string* file = lister.next_file()) {
          assert(expected.erase(*file) == 1 && lister.decide().kind() == model.kind(*file));
        }
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
    for (unsigned count = below(16); count > 0; --count) {
      const unsigned piece = below(24);
      piece < std::size(PIECES) ? file << PIECES[piece] : file << static_cast<char>(below(256));
    }
    file.close();
    scope.refresh();
  }
  return 0;
}

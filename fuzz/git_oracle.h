// What git itself says of a path: `git check-ignore` in a work tree, for the programs
// and tests that hold the component's answers against it.

#ifndef FUZZ_GIT_ORACLE_H_
#define FUZZ_GIT_ORACLE_H_

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/temp_tree.h"
#include "utils/path_filter/index_scope.h"

namespace git_oracle {

/// A file's content; "" when there is no such file.
inline std::string content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Directories with work trees of each kind that git knows, and git to ask in them. The
/// configuration of the machine and of its user has no say.
class Git {
 public:
  enum class Tree { plain, linked, pointer };
  static constexpr std::size_t TREES = 3;

  Git() {
    // A test may run inside a git command, as from a hook.
    for (const char* variable : {"GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_PREFIX",
                                 "GIT_CONFIG_PARAMETERS", "XDG_CONFIG_HOME"}) {
      ::unsetenv(variable);
    }
    ::setenv("HOME", _directory.root().c_str(), 1);
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    ::setenv("GIT_CONFIG_GLOBAL", "/dev/null", 1);
    ::setenv("GIT_FLUSH", "0", 1);  // one write for many answers
    ::setenv("LC_ALL", "C", 1);
    run(_directory.root(), "init -q plain");
    run(work_tree(Tree::plain), "-c user.name=n -c user.email=e commit -q --allow-empty -m first");
    run(work_tree(Tree::plain), "worktree add -q ../linked");
    // As in a submodule: a git directory elsewhere and a relative pointer to it.
    _directory.make_directory("modules");
    run(_directory.root(), "init -q --separate-git-dir=modules/pointer pointer");
    _directory.write("pointer/.git", "gitdir: ../modules/pointer\n");
    for (const Tree tree : {Tree::plain, Tree::pointer}) {
      run(work_tree(tree), "config core.excludesFile '" + excludes_file().string() + "'");
    }
  }

  std::filesystem::path work_tree(Tree tree) const {
    constexpr std::string_view NAMES[TREES] = {"plain", "linked", "pointer"};
    return _directory / NAMES[static_cast<std::size_t>(tree)];
  }
  std::filesystem::path info_exclude(Tree tree) const {
    return _directory /
           (tree == Tree::pointer ? "modules/pointer/info/exclude" : "plain/.git/info/exclude");
  }
  /// What core.excludesFile names in each of them.
  std::filesystem::path excludes_file() const { return _directory / "excludes"; }

  /// The rule that decides about each of `paths`, relative to the top of `tree`. git looks
  /// at the disk to see which are directories; a "/" at the end is dropped.
  std::vector<std::optional<path_filter::IgnoreRule>> deciding_rules(
      Tree tree, std::span<const std::string> paths) const {
    std::string questions;
    for (const std::string& path : paths) {
      questions += "./";  // a name may begin with ":", which is magic to git
      questions.append(path, 0, path.size() - (path.ends_with('/') ? 1 : 0));
      questions += '\0';
    }
    _directory.write("questions", questions);
    // Status 1 only says that nothing is ignored.
    run(work_tree(tree), "check-ignore --no-index -v -n -z --stdin <../questions >../answers", 1);

    const std::string answers = content_of(_directory / "answers");
    std::string_view rest = answers;
    const auto next_field = [&] {
      const std::size_t end = rest.find('\0');
      if (end == std::string_view::npos) throw std::runtime_error("git gave too few answers");
      const std::string field(rest.substr(0, end));
      rest.remove_prefix(end + 1);
      return field;
    };
    std::vector<std::optional<path_filter::IgnoreRule>> rules;
    for (std::size_t count = 0; count < paths.size(); ++count) {
      const std::string source = next_field();
      const std::string line = next_field();
      const std::string pattern = next_field();
      next_field();  // the path
      if (source.empty()) {
        rules.emplace_back();
      } else {
        rules.push_back({{source, std::stoul(line), pattern}});
      }
    }
    return rules;
  }

  /// Runs `git ARGUMENTS` in `directory`. Throws when its status is greater than that.
  static void run(const std::filesystem::path& directory, const std::string& arguments,
                  int greatest_status = 0) {
    const std::string command = "cd '" + directory.string() + "' && exec git " + arguments;
    const int status = std::system(command.c_str());
    if (!WIFEXITED(status) || WEXITSTATUS(status) > greatest_status) {
      throw std::runtime_error("failed: " + command);
    }
  }

 private:
  TempTree _directory;
};

}  // namespace git_oracle

#endif  // FUZZ_GIT_ORACLE_H_

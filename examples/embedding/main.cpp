// embedding [ROOT]: how many files of each language belong in an index, and the first three
// that do not, with the reason.

#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

#include "utils/git_config/git_config.h"
#include "utils/path_filter/path_filter.h"

int main(int argc, char** argv) try {
  // Without the lookups git's own ignore rules count and none of the user's, and case counts.
  const auto git = git_config::lookups();
  const path_filter::IndexScope scope(argc > 1 ? argv[1] : ".", {.excludes_file = git.excludes_file,
                                                                 .ignore_case = git.ignore_case});
  std::map<std::string, int> files;
  int excluded = 0;
  for (const std::string& path : scope.walk()) try {
      // A link in a stranger's repository leads to any file, and a FIFO to nothing.
      if (!is_regular_file(symlink_status(scope.root / path))) continue;
      const path_filter::Decision decision = scope.is_indexable(path);
      if (decision) {
        ++files[*decision.language()];
      } else if (++excluded <= 3) {
        std::cout << path << ": " << decision.reason() << '\n';
      }
    } catch (const std::invalid_argument& error) {
      // A file of a stranger's may be named like an absolute path: "\x".
      std::cerr << error.what() << '\n';
    }
  for (const auto& [language, count] : files) std::cout << count << ' ' << language << '\n';
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}

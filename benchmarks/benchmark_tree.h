// The tree that the benchmarks ask about, and its bare walk.
//
// The environment variable PATH_FILTER_BENCHMARK_TREE names the tree. compare.sh sets it
// to the kernel's sources; any other tree will do.

#ifndef BENCHMARKS_BENCHMARK_TREE_H_
#define BENCHMARKS_BENCHMARK_TREE_H_

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace benchmarks {

/// The tree; ends the process when none is named.
inline const std::string& benchmark_tree() {
  static const std::string tree = [] {
    const char* name = std::getenv("PATH_FILTER_BENCHMARK_TREE");
    struct stat status {};
    if (name == nullptr || ::stat(name, &status) != 0 || !S_ISDIR(status.st_mode)) {
      std::cerr << "PATH_FILTER_BENCHMARK_TREE must name a directory\n";
      std::exit(2);
    }
    return std::string(name);
  }();
  return tree;
}

/// Lists `fd`, which it closes, and all directories below it, and decides nothing: what any
/// walk of the tree costs at least. `on_file` and `on_directory` are told of the names;
/// the latter returns what to call when the directory is done.
template <class OnFile, class OnDirectory>
void bare_walk(int fd, const OnFile& on_file, const OnDirectory& on_directory) {
  DIR* listing = ::fdopendir(fd);
  if (listing == nullptr) std::abort();
  while (const dirent* entry = ::readdir(listing)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    bool is_directory = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      struct stat status {};
      is_directory = ::fstatat(fd, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                     S_ISDIR(status.st_mode);
    }
    if (!is_directory) {
      on_file(name);
      continue;
    }
    const int below = ::openat(fd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (below < 0) continue;
    const auto leave = on_directory(name);
    bare_walk(below, on_file, on_directory);
    leave();
  }
  ::closedir(listing);
}

inline int open_benchmark_tree() {
  const int fd = ::open(benchmark_tree().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) std::abort();
  return fd;
}

/// The tree's files, relative to it, in the order of the walk.
inline const std::vector<std::string>& paths_of_tree() {
  static const std::vector<std::string> paths = [] {
    std::vector<std::string> found;
    std::string directory;
    bare_walk(
        open_benchmark_tree(),
        [&](std::string_view name) { found.emplace_back(directory) += name; },
        [&](std::string_view name) {
          const std::size_t size = directory.size();
          directory.append(name).push_back('/');
          return [&directory, size] { directory.resize(size); };
        });
    return found;
  }();
  return paths;
}

}  // namespace benchmarks

#endif  // BENCHMARKS_BENCHMARK_TREE_H_

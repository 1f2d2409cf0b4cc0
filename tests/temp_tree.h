// A directory of files for one test, in memory where there is such a place, and removed
// with the test.

#ifndef TESTS_TEMP_TREE_H_
#define TESTS_TEMP_TREE_H_

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

class TempTree {
 public:
  TempTree() {
    const bool in_memory = ::access("/dev/shm", W_OK | X_OK) == 0;
    const auto place =
        in_memory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path();
    std::string name = (place / "path_filter_XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    _root = name;
  }
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;
  ~TempTree() {
    std::error_code ignored;
    std::filesystem::remove_all(_root, ignored);
  }

  const std::filesystem::path& root() const { return _root; }
  std::filesystem::path operator/(std::string_view path) const { return _root / path; }

  /// Writes a file, and makes the directories on its way.
  void write(std::string_view path, std::string_view content = "") const {
    std::filesystem::create_directories((_root / path).parent_path());
    std::ofstream(_root / path, std::ios::binary) << content;
  }
  void make_directory(std::string_view path) const {
    std::filesystem::create_directories(_root / path);
  }
  void link(std::string_view path, std::string_view target) const {
    std::filesystem::create_symlink(target, _root / path);
  }

 private:
  std::filesystem::path _root;
};

#endif  // TESTS_TEMP_TREE_H_

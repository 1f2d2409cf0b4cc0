// A directory of files for one test, in memory where there is such a place, and removed
// with the test.

#ifndef TESTS_TEMP_TREE_H_
#define TESTS_TEMP_TREE_H_

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "tests/system.h"

class TempTree {
 public:
  TempTree() {
    std::error_code none;
    const std::filesystem::path memory = "/dev/shm";
    const auto place = std::filesystem::is_directory(memory, none)
                           ? memory
                           : std::filesystem::temp_directory_path();
    do {
      _root = place / ("path_filter_" + std::to_string(std::random_device()()));
    } while (!std::filesystem::create_directory(_root));
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
  void write(const std::filesystem::path& path, std::string_view content = "") const {
    std::filesystem::create_directories((_root / path).parent_path());
    std::ofstream(_root / path, std::ios::binary) << content;
  }
  void make_directory(std::string_view path) const {
    std::filesystem::create_directories(_root / path);
  }
  void link(std::string_view path, std::string_view target) const {
    test_system::make_link(target, _root / path);
  }

 private:
  std::filesystem::path _root;
};

#endif  // TESTS_TEMP_TREE_H_

#include <sys/stat.h>

#include <iterator>

#include "tests/system.h"

namespace test_system {

void make_link(const std::filesystem::path& target, const std::filesystem::path& at) {
  std::filesystem::create_symlink(target, at);
}

bool make_fifo(const std::filesystem::path& at) { return ::mkfifo(at.c_str(), 0600) == 0; }

std::size_t open_files() {
  const std::filesystem::directory_iterator all("/dev/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace test_system

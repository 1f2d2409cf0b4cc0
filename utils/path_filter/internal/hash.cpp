#include "utils/path_filter/internal/hash.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace path_filter::internal {

std::uint64_t random_seed() {
  std::uint64_t seed = 0;
  if (::getentropy(&seed, sizeof seed) != 0) {
    throw std::system_error(errno, std::generic_category(), "no random bytes for the hashes");
  }
  return seed;
}

}  // namespace path_filter::internal

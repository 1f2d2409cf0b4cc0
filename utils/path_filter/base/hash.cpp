#include "utils/path_filter/base/hash.h"

#include <random>

namespace path_filter::internal {

std::uint64_t random_seed() {
  std::random_device random;
  return std::uniform_int_distribution<std::uint64_t>()(random);
}

}  // namespace path_filter::internal

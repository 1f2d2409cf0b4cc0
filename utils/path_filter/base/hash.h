// The one hash of the component's tables.

#ifndef UTILS_PATH_FILTER_BASE_HASH_H_
#define UTILS_PATH_FILTER_BASE_HASH_H_

#include <cstdint>
#include <string_view>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "utils/path_filter/base/platform.h"

namespace path_filter::internal {

/// The seed of every hash, drawn once for the process: names in a repository cannot be
/// chosen to collide beforehand.
inline std::uint64_t hash_seed() {
  static const std::uint64_t seed = random_seed();
  return seed;
}

inline std::uint64_t hash_text(std::string_view text) {
  return XXH3_64bits_withSeed(text.data(), text.size(), hash_seed());
}

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_HASH_H_

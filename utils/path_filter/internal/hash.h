// The one hash of the component's tables.

#ifndef UTILS_PATH_FILTER_INTERNAL_HASH_H_
#define UTILS_PATH_FILTER_INTERNAL_HASH_H_

#include <cstdint>
#include <string_view>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace path_filter::internal {

inline constexpr char SEED_ANCHOR = 0;

/// The seed of every hash: where the program was loaded, which address space layout
/// randomisation makes another place in each process. Names in a repository cannot
/// be chosen to collide beforehand.
inline std::uint64_t hash_seed() { return reinterpret_cast<std::uintptr_t>(&SEED_ANCHOR); }

inline std::uint64_t hash_text(std::string_view text) {
  return XXH3_64bits_withSeed(text.data(), text.size(), hash_seed());
}

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INTERNAL_HASH_H_

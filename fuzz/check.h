// What the fuzz targets share.

#ifndef FUZZ_CHECK_H_
#define FUZZ_CHECK_H_

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace fuzz {

/// Ends the run when what must hold does not: the fuzzer then keeps the input.
inline void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

/// The lines of `text`.
inline std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace fuzz

#endif  // FUZZ_CHECK_H_

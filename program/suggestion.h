#ifndef PROGRAM_SUGGESTION_H_
#define PROGRAM_SUGGESTION_H_

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace program {

/// The one of `known` that a person who wrote `word` probably meant: it differs in case only, or
/// by at most a quarter of its letters left out, added, replaced or swapped with their neighbour;
/// or else the shortest that `word` abbreviates. Absent when there is none.
std::optional<std::string_view> nearest(std::string_view word,
                                        std::span<const std::string_view> known);

/// The language of the default registry that was probably meant by `word`: the nearest one, or
/// the one that files with that extension are of.
std::optional<std::string_view> nearest_language(std::string_view word);

/// "; did you mean 'x'?", or nothing.
std::string did_you_mean(const std::optional<std::string_view>& suggestion);

}  // namespace program

#endif  // PROGRAM_SUGGESTION_H_

// What the scope says of a directory.

#ifndef PROGRAM_DIRECTORY_H_
#define PROGRAM_DIRECTORY_H_

#include <optional>
#include <string>

#include "utils/path_filter/index_scope.h"

namespace program {

/// Why a walk does not go into the directory at `rel_dir`, and what decided; absent when it
/// does.
inline std::optional<path_filter::Explanation> exclusion_of(const path_filter::IndexScope& scope,
                                                            const std::string& rel_dir) {
  if (scope.admits_directory(rel_dir)) return std::nullopt;
  // What leaves out a file of a known language in it is the rule for the directory.
  path_filter::Explanation explanation = scope.explain(rel_dir + "/a.c");
  explanation.decision = path_filter::_excluded(*explanation.decision.kind());
  return explanation;
}

}  // namespace program

#endif  // PROGRAM_DIRECTORY_H_

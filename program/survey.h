// All that lies below a directory, what is left out too: one pass for the commands that tell
// of a whole tree.

#ifndef PROGRAM_SURVEY_H_
#define PROGRAM_SURVEY_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "program/repository.h"
#include "utils/path_filter/index_scope/decision.h"

namespace program {

struct Count {
  std::size_t files = 0;
  std::size_t bytes = 0;

  void add(std::size_t size) { add({1, size}); }
  void add(const Count& other) {
    files += other.files;
    bytes += other.bytes;
  }
};

/// A file outside the pruned directories; what it refers to is valid during the call.
struct SurveyedFile {
  std::string_view path;             // relative to the root
  std::optional<std::int64_t> size;  // absent when it is gone
  const path_filter::Decision& decision;
  bool is_test;  // of one that is in

  std::size_t bytes() const { return static_cast<std::size_t>(size.value_or(0)); }
};

/// A directory that is left out as a whole, and all below it.
struct PrunedDirectory {
  std::string path;  // relative to the root
  path_filter::Exclusion kind;
  Count count;
};

struct SurveyHandlers {
  std::function<void(const SurveyedFile&)> on_file;
  std::function<void(PrunedDirectory)> on_pruned;
};

/// Tells of all below the directory asked about, top-down and depth-first: a
/// directory's files and the pruned directories in it come before what its other directories
/// hold. Below a pruned one links are not followed, and what cannot be read is not counted.
/// How far it is stands on standard error when that is a terminal, as do the problems.
/// Returns the exit status: 1 when there were some. Throws LeftOut when the directory is left out
/// itself. Only regular files are told of, and none of a repository's own store.
int survey(const Repository& repository, const Place& place, const SurveyHandlers& handlers);

}  // namespace program

#endif  // PROGRAM_SURVEY_H_

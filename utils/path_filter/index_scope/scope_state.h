// What a scope knows, and its rules in their order.

#ifndef UTILS_PATH_FILTER_INDEX_SCOPE_SCOPE_STATE_H_
#define UTILS_PATH_FILTER_INDEX_SCOPE_SCOPE_STATE_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "utils/path_filter/base/directory_table.h"
#include "utils/path_filter/git_ignore/ignore_verdicts.h"
#include "utils/path_filter/index_scope/decision.h"
#include "utils/path_filter/index_scope/index_limits.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/index_scope/replaceable.h"

namespace path_filter::internal {

/// Paths are relative to the root, with "/" between components, and come with the table's
/// entry of the directory: for a file's path, of what precedes its last "/".
class ScopeState {
 public:
  /// The limits are referred to and must outlive it.
  ScopeState(const std::filesystem::path& root, const std::optional<IndexLimits>& limits,
             ExcludesFileLookup excludes_file, IgnoreCase ignore_case);

  void refresh();

  /// The root's path.
  const std::string& root() const { return _root; }

  /// The ignore rules as they are now.
  std::shared_ptr<IgnoreVerdicts> verdicts() const { return _verdicts.take(); }

  /// All directories asked about. Like the fixed rules it outlives every refresh.
  DirectoryTable& directories() { return _directories; }

  /// The directory that holds the file at `path`.
  const Directory& directory_of(std::string_view path);

  /// The verdict on the file at `path`.
  Decision decide(std::string_view path, const Directory& directory, IgnoreVerdicts& verdicts,
                  FileFacts facts);

  /// The kind of rule that leaves out all that the directory at `path` holds.
  std::optional<Exclusion> exclusion_of_directory(std::string_view path, const Directory& directory,
                                                  IgnoreVerdicts& verdicts);

  /// What decided, for IndexScope::explain.
  Explanation explain(std::string_view path, FileFacts facts);

 private:
  enum class DirectoryRule : std::uint8_t { unknown, none, directory, index_data };

  std::optional<Exclusion> _directory_rule(const Directory& directory);
  Decision _within_limits(std::string_view language, std::optional<std::int64_t> size) const;

  const std::string _root;
  const std::optional<IndexLimits>& _limits;
  const ExcludesFileLookup _excludes_file;
  const IgnoreCase _ignore_case;

  DirectoryTable _directories;
  DirectoryMap<DirectoryRule> _directory_rules;
  const Directory* const _index_data_directory = &_directories[INDEX_DATA_DIR];

  /// Git's verdicts by the ignore rules as they were at the last refresh.
  Replaceable<IgnoreVerdicts> _verdicts;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_INDEX_SCOPE_SCOPE_STATE_H_

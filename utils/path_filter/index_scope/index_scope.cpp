#include "utils/path_filter/index_scope/index_scope.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/index_scope/scope_state.h"
#include "utils/path_filter/path_rules/path_rules.h"

namespace path_filter {

using internal::Directory;

namespace {

static_assert(std::ranges::all_of(MINIFIED_FILE_GLOBS,
                                  [](std::string_view glob) {
                                    return glob.starts_with('*') &&
                                           glob.find_first_of("*?[", 1) == std::string_view::npos;
                                  }),
              "a name matches each of these globs when it ends like it");

std::string_view minified_glob(std::string_view name) {
  for (const std::string_view glob : MINIFIED_FILE_GLOBS) {
    if (name.ends_with(glob.back()) && name.ends_with(glob.substr(1))) return glob;
  }
  return {};
}

/// `bytes` in MiB as text: as "%.1f" or "%g" would write it, in every locale.
std::string mebibytes(std::int64_t bytes, std::chars_format format, int precision) {
  char text[64];
  const double value = static_cast<double>(bytes) / static_cast<double>(internal::MIB);
  return {text, std::to_chars(std::begin(text), std::end(text), value, format, precision).ptr};
}

}  // namespace

IndexScope::IndexScope(std::filesystem::path root_path, IndexScopeOptions options)
    : root(std::move(root_path)),
      limits(std::move(options.limits)),
      _state(std::make_unique<internal::ScopeState>(root, limits, std::move(options.excludes_file),
                                                    std::move(options.ignore_case))) {}

IndexScope::~IndexScope() = default;

void IndexScope::refresh() { _state->refresh(); }

std::optional<std::string> IndexScope::relative(PathArgument path) const {
  std::string path_storage;
  std::string root_storage;
  const std::string_view absolute = internal::native_path(path, path_storage);
  internal::PathComponents below(absolute);
  internal::PathComponents above(internal::native_path(_state->root(), root_storage));
  bool is_relative_root = true;
  while (const auto component = above.next()) {
    const auto same = below.next();
    if (!same || !internal::is_same_name(*same, *component)) return std::nullopt;
    is_relative_root = false;
  }
  // An absolute path is below no relative root, not even below ".".
  if (is_relative_root && internal::is_absolute(absolute)) return std::nullopt;
  std::string joined;
  while (const auto component = below.next()) {
    if (*component == "..") return std::nullopt;
    if (!joined.empty()) joined += '/';
    joined += *component;
  }
  if (joined.empty()) return std::nullopt;
  return joined;
}

// --- The questions -------------------------------------------------------------

Decision IndexScope::is_indexable(PathArgument rel_path, FileFacts facts) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _state->decide(path, _state->directory_of(path), *_state->verdicts(), facts);
}

bool IndexScope::is_ignored(PathArgument rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _state->verdicts()->_ignored(path, _state->directory_of(path));
}

bool IndexScope::admits_directory(PathArgument rel_dir) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_dir, storage);
  return !_state->exclusion_of_directory(path, _state->directories()[path], *_state->verdicts());
}

Explanation IndexScope::explain(PathArgument rel_path, FileFacts facts) const {
  std::string storage;
  return _state->explain(_relative_posix(rel_path, storage), facts);
}

std::optional<IgnoreRule> IndexScope::deciding_ignore_rule(PathArgument rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _state->verdicts()->deciding_rule(path, _state->directory_of(path));
}

namespace internal {

// --- The rules -----------------------------------------------------------------

ScopeState::ScopeState(const std::filesystem::path& root, const std::optional<IndexLimits>& limits,
                       ExcludesFileLookup excludes_file, IgnoreCase ignore_case)
    : _root(path_text(root)),
      _limits(limits),
      _excludes_file(std::move(excludes_file)),
      _ignore_case(std::move(ignore_case)),
      _verdicts(std::make_shared<IgnoreVerdicts>(_root, _excludes_file, _ignore_case)) {}

void ScopeState::refresh() {
  _verdicts.replace(std::make_shared<IgnoreVerdicts>(_root, _excludes_file, _ignore_case));
}

const Directory& ScopeState::directory_of(std::string_view path) {
  return _directories[SplitPath(path).directory];
}

Decision ScopeState::decide(std::string_view path, const Directory& directory,
                            IgnoreVerdicts& verdicts, FileFacts facts) {
  const bool at_root = directory.parent == nullptr;
  const std::string_view name = at_root ? path : path.substr(directory.path_size + 1);
  if (!at_root) {
    if (const auto kind = _directory_rule(directory)) return Decision::excluded(*kind);
  }
  const auto language = language_registry::detect_language(name);
  if (!language) return Decision::excluded(Exclusion::unknown_language);
  if (language_registry::is_lockfile(name))
    return Decision::excluded(Exclusion::lockfile, language);
  if (!minified_glob(name).empty()) return Decision::excluded(Exclusion::minified, language);
  if (verdicts._ignored(path, directory)) return Decision::excluded(Exclusion::gitignore, language);
  return _within_limits(*language, facts.size);
}

std::optional<Exclusion> ScopeState::exclusion_of_directory(std::string_view path,
                                                            const Directory& directory,
                                                            IgnoreVerdicts& verdicts) {
  if (path.empty()) return std::nullopt;
  if (const auto kind = _directory_rule(directory)) return kind;
  if (verdicts._directory_ignored(path, directory)) return Exclusion::gitignore;
  return std::nullopt;
}

Decision ScopeState::_within_limits(std::string_view language,
                                    std::optional<std::int64_t> size) const {
  if (_limits) {
    if (size && *size > _limits->max_file_bytes()) {
      return Decision(false, Exclusion::size,
                      mebibytes(*size, std::chars_format::fixed, 1) +
                          " MB is over index.max_file_size_mb (" +
                          mebibytes(_limits->max_file_bytes(), std::chars_format::general, 6) + ")",
                      std::string(language));
    }
    if (!_limits->allows(language)) {
      return Decision(false, Exclusion::language,
                      std::string(language) + " is not in index.languages", std::string(language));
    }
  }
  return Decision::indexed(language);
}

Explanation ScopeState::explain(std::string_view path, FileFacts facts) {
  const Directory& directory = directory_of(path);
  const auto verdicts = _verdicts.take();
  Explanation explanation{decide(path, directory, *verdicts, facts)};
  const auto kind = explanation.decision.kind();
  if (kind == Exclusion::directory || kind == Exclusion::index_data) {
    // The topmost has the rule: those below it inherit it.
    const Directory* topmost = &directory;
    while (_directory_rule(*topmost->parent)) topmost = topmost->parent;
    explanation.directory = path.substr(0, topmost->path_size);
  } else if (kind == Exclusion::minified) {
    explanation.glob = minified_glob(SplitPath(path).name);
  } else if (kind != Exclusion::unknown_language && kind != Exclusion::lockfile) {
    explanation.rule = verdicts->deciding_rule(path, directory);
  }
  return explanation;
}

// --- The fixed directory rules -------------------------------------------------

std::optional<Exclusion> ScopeState::_directory_rule(const Directory& directory) {
  const auto judge = [&](const Directory& judged, DirectoryRule above) {
    if (above != DirectoryRule::none || judged.parent == nullptr) return above;
    const std::string_view parent = judged.parent->name();
    if (_skips_directory(judged.name(), parent.empty() ? std::nullopt : std::optional(parent))) {
      return DirectoryRule::directory;
    }
    return &judged == _index_data_directory ? DirectoryRule::index_data : DirectoryRule::none;
  };
  DirectoryRule rule = _directory_rules.find(directory);
  if (rule == DirectoryRule::unknown) {
    rule = _directory_rules.find_or_make(directory, DirectoryRule::none, judge);
  }
  if (rule == DirectoryRule::none) return std::nullopt;
  return rule == DirectoryRule::directory ? Exclusion::directory : Exclusion::index_data;
}

}  // namespace internal
}  // namespace path_filter

#include "utils/path_filter/index_scope.h"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/path_rules.h"

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

Decision excluded(Exclusion kind, std::optional<std::string_view> language = std::nullopt) {
  return {.indexable = false,
          .kind = kind,
          .reason = std::string(internal::reason_of(kind)),
          .language = language ? std::optional<std::string>(*language) : std::nullopt};
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
      _excludes_file(std::move(options.excludes_file)),
      _verdicts(std::make_shared<IgnoreVerdicts>(root, _excludes_file)) {}

void IndexScope::refresh() {
  _verdicts.replace(std::make_shared<IgnoreVerdicts>(root, _excludes_file));
}

std::optional<std::string> IndexScope::relative(std::string_view path) const {
  internal::PathComponents below(path);
  internal::PathComponents above(root.native());
  while (const auto component = above.next()) {
    if (below.next() != component) return std::nullopt;
  }
  std::string joined;
  while (const auto component = below.next()) {
    // An absolute path is below no relative root, not even below ".".
    if (*component == ".." || component->starts_with('/')) return std::nullopt;
    if (!joined.empty()) joined += '/';
    joined += *component;
  }
  if (joined.empty()) return std::nullopt;
  return joined;
}

// --- The questions -------------------------------------------------------------

/// The directory that holds the file at `path`.
const Directory& IndexScope::directory_of(std::string_view path) const {
  return _directories[internal::SplitPath(path).directory];
}

Decision IndexScope::is_indexable(std::string_view rel_path, FileFacts facts) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _decide(path, directory_of(path), *_verdicts.take(), facts);
}

/// The rules in their order.
Decision IndexScope::_decide(std::string_view path, const Directory& directory,
                             IgnoreVerdicts& verdicts, FileFacts facts) const {
  const bool at_root = directory.parent == nullptr;
  const std::string_view name = at_root ? path : path.substr(directory.path_size + 1);
  if (!at_root) {
    if (const auto kind = _directory_rule(directory)) return excluded(*kind);
  }
  const auto language = language_registry::detect_language(name);
  if (!language) return excluded(Exclusion::unknown_language);
  if (language_registry::is_lockfile(name)) return excluded(Exclusion::lockfile, language);
  if (!minified_glob(name).empty()) return excluded(Exclusion::minified, language);
  if (verdicts._ignored(path, directory)) return excluded(Exclusion::gitignore, language);
  return _within_limits(*language, facts.size);
}

bool IndexScope::is_ignored(std::string_view rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _verdicts.take()->_ignored(path, directory_of(path));
}

bool IndexScope::admits_directory(std::string_view rel_dir) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_dir, storage);
  return !_excludes_directory(path, _directories[path], *_verdicts.take());
}

/// The kind of rule that leaves out all that the directory at `path` holds.
std::optional<Exclusion> IndexScope::_excludes_directory(std::string_view path,
                                                         const Directory& directory,
                                                         IgnoreVerdicts& verdicts) const {
  if (path.empty()) return std::nullopt;
  if (const auto kind = _directory_rule(directory)) return kind;
  if (verdicts._directory_ignored(path, directory)) return Exclusion::gitignore;
  return std::nullopt;
}

Decision IndexScope::_within_limits(std::string_view language,
                                    std::optional<std::int64_t> size) const {
  if (limits) {
    if (size && *size > limits->max_file_bytes) {
      return {.indexable = false,
              .kind = Exclusion::size,
              .reason = mebibytes(*size, std::chars_format::fixed, 1) +
                        " MB is over index.max_file_size_mb (" +
                        mebibytes(limits->max_file_bytes, std::chars_format::general, 6) + ")",
              .language = std::string(language)};
    }
    if (!limits->allows(language)) {
      return {.indexable = false,
              .kind = Exclusion::language,
              .reason = std::string(language) + " is not in index.languages",
              .language = std::string(language)};
    }
  }
  return {.indexable = true, .language = std::optional<std::string>(std::in_place, language)};
}

Explanation IndexScope::explain(std::string_view rel_path, FileFacts facts) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  const Directory& directory = directory_of(path);
  const auto verdicts = _verdicts.take();
  Explanation explanation{_decide(path, directory, *verdicts, facts)};
  const auto kind = explanation.decision.kind;
  if (kind == Exclusion::directory || kind == Exclusion::index_data) {
    // The topmost has the rule: those below it inherit it.
    const Directory* topmost = &directory;
    while (_directory_rule(*topmost->parent)) topmost = topmost->parent;
    explanation.directory = path.substr(0, topmost->path_size);
  } else if (kind == Exclusion::minified) {
    explanation.glob = minified_glob(internal::SplitPath(path).name);
  } else if (kind != Exclusion::unknown_language && kind != Exclusion::lockfile) {
    explanation.rule = verdicts->deciding_rule(path, directory);
  }
  return explanation;
}

std::optional<IgnoreRule> IndexScope::deciding_ignore_rule(std::string_view rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  return _verdicts.take()->deciding_rule(path, directory_of(path));
}

// --- A directory that has been listed -------------------------------------------

ListedDirectory::ListedDirectory(const IndexScope& scope, const IgnoreFileReader& read)
    : _scope(&scope), _verdicts(scope._verdicts.take()), _directory(&scope._directories.root()) {
  _verdicts->learn("", *_directory, read);
}

ListedDirectory::ListedDirectory(const IndexScope& scope, const Directory& parent,
                                 std::string_view rel_dir, const IgnoreFileReader& read)
    : _scope(&scope),
      _verdicts(scope._verdicts.take()),
      _directory(&scope._directories.child(parent, rel_dir)) {
  if (rel_dir.find('\\') == std::string_view::npos) _verdicts->learn(rel_dir, *_directory, read);
}

// A backslash in a name separates components for a question, but not on disk. Such a path
// does not lie where its text says, and what lies there may be a link: it is answered from
// rules that were read without following one, and leaves nothing in those of the others.

Decision ListedDirectory::decide(std::string_view path, FileFacts facts) const {
  std::string storage;
  const std::string_view posix = _relative_posix(path, storage);
  if (posix.data() == path.data()) return _scope->_decide(path, *_directory, *_verdicts, facts);
  return _scope->_decide(posix, _scope->directory_of(posix), _verdicts->without_links(), facts);
}

std::optional<Exclusion> ListedDirectory::excludes(std::string_view path) const {
  std::string storage;
  const std::string_view posix = _relative_posix(path, storage);
  auto& directories = _scope->_directories;
  if (posix.data() == path.data()) {
    return _scope->_excludes_directory(path, directories.child(*_directory, path), *_verdicts);
  }
  return _scope->_excludes_directory(posix, directories[posix], _verdicts->without_links());
}

// --- The fixed directory rules -------------------------------------------------

std::optional<Exclusion> IndexScope::_directory_rule(const Directory& directory) const {
  DirectoryRule rule = _directory_rules.find(directory);
  if (rule == DirectoryRule::unknown) {
    // Up to the nearest directory whose rule is known, and down again.
    std::vector<const Directory*> unknown;
    const Directory* at = &directory;
    rule = DirectoryRule::none;
    for (; at->parent != nullptr; at = at->parent) {
      const DirectoryRule known = _directory_rules.find(*at);
      if (known != DirectoryRule::unknown) {
        rule = known;
        break;
      }
      unknown.push_back(at);
    }
    for (auto next = unknown.rbegin(); next != unknown.rend(); ++next) {
      const Directory& judged = **next;
      if (rule == DirectoryRule::none) {
        const std::string_view above = judged.parent->name();
        if (_skips_directory(judged.name(), above.empty() ? std::nullopt : std::optional(above))) {
          rule = DirectoryRule::directory;
        } else if (&judged == _index_data_directory) {
          rule = DirectoryRule::index_data;
        }
      }
      _directory_rules.store(judged, rule);
    }
  }
  switch (rule) {
    case DirectoryRule::directory:
      return Exclusion::directory;
    case DirectoryRule::index_data:
      return Exclusion::index_data;
    default:
      return std::nullopt;
  }
}

}  // namespace path_filter

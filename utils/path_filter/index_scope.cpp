#include "utils/path_filter/index_scope.h"

#include <sched.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <thread>
#include <utility>
#include <variant>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/internal/listed_directory.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/path_rules.h"

namespace path_filter {

using internal::Directory;
using internal::SplitPath;

namespace {

/// The topmost of the directories from the root down to `directory` for which `holds`;
/// null when there is none.
template <typename Holds>
const Directory* topmost(const Directory& directory, Holds holds) {
  const Directory* found = nullptr;
  for (const Directory* at = &directory; at->parent != nullptr; at = at->parent) {
    if (holds(*at)) found = at;
  }
  return found;
}

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

const IndexScope::IgnoreFile IndexScope::IgnoreCaches::NO_RULES{};

IndexScope::IndexScope(std::filesystem::path root_path, IndexScopeOptions options)
    : root(std::move(root_path)),
      limits(std::move(options.limits)),
      _excludes_file(std::move(options.excludes_file)) {
  refresh();
}

void IndexScope::refresh() {
  const auto caches = std::make_shared<IgnoreCaches>();
  for (CacheSlot& slot : _slots) {
    // A count of its own for each slot: a pointer to the caches that shares the life
    // of a pointer to them.
    auto owner = std::make_shared<std::shared_ptr<IgnoreCaches>>(caches);
    std::shared_ptr<IgnoreCaches> replaced(std::move(owner), caches.get());
    const std::lock_guard hold(slot.lock);
    slot.caches.swap(replaced);
  }
}

std::shared_ptr<IndexScope::IgnoreCaches> IndexScope::_caches() const {
  const int processor = sched_getcpu();
  CacheSlot& slot = _slots[static_cast<std::size_t>(std::max(processor, 0)) % CACHE_SLOTS];
  const std::lock_guard hold(slot.lock);
  return slot.caches;
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

Decision IndexScope::is_indexable(std::string_view rel_path, FileFacts facts) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  const SplitPath split(path);
  return _decide(path, split, _directories[split.directory], facts, nullptr);
}

/// The decision on the file at `path`, whose directory is `known_directory`.
Decision IndexScope::_decide(std::string_view path, const SplitPath& split,
                             const Directory& known_directory, FileFacts facts,
                             const ListedDirectory* listed) const {
  const std::string_view name = split.name;
  if (!split.directory.empty()) {
    if (const auto kind = _directory_rule(known_directory)) return excluded(*kind);
  }
  const auto language = language_registry::detect_language(name);
  if (!language) return excluded(Exclusion::unknown_language);
  if (language_registry::is_lockfile(name)) return excluded(Exclusion::lockfile, language);
  if (!minified_glob(name).empty()) return excluded(Exclusion::minified, language);
  if (_ignored(path, split, known_directory, listed)) {
    return excluded(Exclusion::gitignore, language);
  }
  return _within_limits(*language, facts.size);
}

bool IndexScope::is_ignored(std::string_view rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  const SplitPath split(path);
  return _ignored(path, split, _directories[split.directory], nullptr);
}

bool IndexScope::admits_directory(std::string_view rel_dir) const {
  std::string storage;
  return !_excludes_directory(_relative_posix(rel_dir, storage), nullptr);
}

/// The kind of rule that leaves out all that the directory at `path` holds.
std::optional<Exclusion> IndexScope::_excludes_directory(std::string_view path,
                                                         const ListedDirectory* listed) const {
  if (path.empty()) return std::nullopt;
  const Directory& directory = _directories[path];
  if (const auto kind = _directory_rule(directory)) return kind;
  if (_directory_ignored(*_caches(), path, directory, listed)) return Exclusion::gitignore;
  return std::nullopt;
}

Walk IndexScope::walk(WalkErrorHandler on_error, WalkOptions options) const {
  return Walk(*this, std::move(on_error), std::move(options));
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
  const auto [directory, name] = SplitPath(path);
  Explanation explanation{is_indexable(path, facts)};
  if (!explanation.decision.kind) {
    explanation.rule = deciding_ignore_rule(path);
    return explanation;
  }
  switch (*explanation.decision.kind) {
    case Exclusion::directory:
    case Exclusion::index_data:
      // The topmost has the rule: those below it inherit it.
      explanation.directory =
          directory.substr(0, topmost(_directories[directory], [&](const Directory& above) {
                                return _directory_rule(above).has_value();
                              })->path_size);
      break;
    case Exclusion::minified:
      explanation.glob = minified_glob(name);
      break;
    case Exclusion::gitignore:
    case Exclusion::size:
    case Exclusion::language:
      explanation.rule = deciding_ignore_rule(path);
      break;
    case Exclusion::unknown_language:
    case Exclusion::lockfile:
      break;
  }
  return explanation;
}

std::optional<IgnoreRule> IndexScope::deciding_ignore_rule(std::string_view rel_path) const {
  std::string storage;
  const std::string_view path = _relative_posix(rel_path, storage);
  const SplitPath split(path);
  const auto caches = _caches();
  const Directory& known = _directories[split.directory];
  const Directory* ignored = topmost(known, [&](const Directory& above) {
    const std::string_view rel_dir = path.substr(0, above.path_size);
    return _directory_ignored(*caches, rel_dir, above, nullptr);
  });
  Match match;
  if (ignored != nullptr) {
    const std::string_view rel_dir = path.substr(0, ignored->path_size);
    match = _matches(*caches, rel_dir, SplitPath(rel_dir), true, *ignored->parent, nullptr);
  } else {
    match = _matches(*caches, path, split, false, known, nullptr);
  }
  if (match.file == nullptr) return std::nullopt;
  const auto pattern = match.file->rules.pattern(match.rule);
  return IgnoreRule{match.file->source, pattern.line, std::string(pattern.text)};
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

// --- Git's ignore rules --------------------------------------------------------

std::vector<std::filesystem::path> IndexScope::_exclude_files() const {
  std::vector<std::filesystem::path> files;
  const auto git_dir = _git_dir(root);
  if (!git_dir) return files;
  files.push_back(_common_dir(*git_dir) / "info" / "exclude");
  if (_excludes_file) {
    if (auto configured = _excludes_file(root)) files.push_back(std::move(*configured));
  }
  return files;
}

const std::vector<IndexScope::IgnoreFile>& IndexScope::_repository_excludes(
    IgnoreCaches& caches) const {
  if (const auto* loaded = caches._excludes.load(std::memory_order_acquire)) return *loaded;
  const std::filesystem::path own = root / ".git" / "info" / "exclude";
  std::vector<IgnoreFile> excludes;
  const auto files = _exclude_files();
  for (const std::filesystem::path& path : files) {
    const bool configured = &path != &files.front();
    if (auto rules = _read_ignore_rules(configured ? root / path : path)) {
      // git names the repository's own file relative to the work tree, and the configured
      // one as it is configured.
      std::string source = path == own  ? ".git/info/exclude"
                           : configured ? path.string()
                                        : path.lexically_normal().string();
      excludes.push_back({std::move(*rules), std::move(source), 0, nullptr});
    }
  }
  const std::lock_guard hold(caches.lock);
  const auto& kept = caches.exclude_lists.emplace_back(std::move(excludes));
  caches._excludes.store(&kept, std::memory_order_release);
  return kept;
}

const IndexScope::IgnoreFile* IndexScope::_ignore_rules(IgnoreCaches& caches,
                                                        const Directory& directory,
                                                        std::string_view rel_dir,
                                                        const ListedDirectory* listed) const {
  if (const IgnoreFile* known = caches._ignore_files.find(directory)) return known;

  // The chain goes on with the rules of the directory above. They are known, as that
  // directory has been judged before; but for a path with doubled separators.
  std::vector<const Directory*> unknown{&directory};
  const IgnoreFile* chain = &IgnoreCaches::NO_RULES;
  for (const Directory* above = directory.parent; above != nullptr; above = above->parent) {
    if (const IgnoreFile* known = caches._ignore_files.find(*above)) {
      chain = known;
      break;
    }
    unknown.push_back(above);
  }
  for (auto next = unknown.rbegin(); next != unknown.rend(); ++next) {
    const std::string_view path = rel_dir.substr(0, (*next)->path_size);
    if (auto rules = _rules_of_directory(path, listed)) {
      std::string source(path);
      if (!path.empty()) source += '/';
      source += IGNORE_FILE_NAME;
      const std::size_t skip = path.empty() ? 0 : path.size() + 1;
      const std::lock_guard hold(caches.lock);
      chain =
          &caches.files.emplace_back(IgnoreFile{std::move(*rules), std::move(source), skip, chain});
    }
    caches._ignore_files.store(**next, chain);
  }
  return chain;
}

/// Reads the `.gitignore` of the directory at `rel_dir`.
std::optional<GitIgnoreSpec> IndexScope::_rules_of_directory(std::string_view rel_dir,
                                                             const ListedDirectory* listed) const {
  const std::string name(IGNORE_FILE_NAME);
  internal::FileContent content;
  if (listed == nullptr) {
    content = internal::read_file_below(root.native(), rel_dir, name, MAX_IGNORE_FILE_BYTES);
  } else if (listed->path == rel_dir && !listed->listing.contains(name)) {
    return std::nullopt;
  } else if (listed->path == rel_dir && listed->directory.is_open()) {
    content = internal::read_file_in(listed->directory, name, MAX_IGNORE_FILE_BYTES);
  } else {
    internal::FileDescriptor directory;
    if (internal::open_directory_below(root.native(), rel_dir, directory) != 0) {
      return std::nullopt;  // gone, or a link by now
    }
    content = internal::read_file_in(directory, name, MAX_IGNORE_FILE_BYTES);
  }
  if (const auto* error = std::get_if<internal::ReadError>(&content)) {
    _warn_unreadable(*error, [&] { return (root / rel_dir / name).string(); });
    return std::nullopt;
  }
  return _ignore_rules_in(std::get<std::string>(content));
}

/// What decides about `path` by itself, where `split` is the path split and `parent` the
/// directory that it lies in.
IndexScope::Match IndexScope::_matches(IgnoreCaches& caches, std::string_view path, SplitPath split,
                                       bool is_directory, const Directory& parent,
                                       const ListedDirectory* listed) const {
  const Directory* known = &parent;
  if (path.ends_with('/')) {
    path = path.substr(0, path.find_last_not_of('/') + 1);  // npos + 1 is 0
    split = SplitPath(path);
    is_directory = true;
    known = &_directories[split.directory];
  }
  const GitIgnoreSpec::Question question(path, split.name, is_directory);
  for (const IgnoreFile* file = _ignore_rules(caches, *known, split.directory, listed);
       file != &IgnoreCaches::NO_RULES; file = file->up) {
    if (const auto rule = file->rules.deciding_rule(question, file->skip)) return {file, rule};
  }
  for (const IgnoreFile& file : _repository_excludes(caches)) {
    if (const auto rule = file.rules.deciding_rule(question, 0)) return {&file, rule};
  }
  return {};
}

bool IndexScope::_directory_ignored(IgnoreCaches& caches, std::string_view rel_dir,
                                    const Directory& directory,
                                    const ListedDirectory* listed) const {
  IgnoreVerdict verdict = caches._ignored_directories.find(directory);
  if (verdict == IgnoreVerdict::unknown) {
    // Up to the nearest directory that has been judged, and down again: what lies in
    // an ignored directory is ignored, and its own rules are not asked.
    std::vector<const Directory*> unknown;
    const Directory* at = &directory;
    verdict = IgnoreVerdict::not_ignored;
    for (; at->parent != nullptr; at = at->parent) {
      const IgnoreVerdict known = caches._ignored_directories.find(*at);
      if (known != IgnoreVerdict::unknown) {
        verdict = known;
        break;
      }
      unknown.push_back(at);
    }
    for (auto next = unknown.rbegin(); next != unknown.rend(); ++next) {
      const Directory& judged = **next;
      if (verdict == IgnoreVerdict::not_ignored) {
        const std::string_view path = rel_dir.substr(0, judged.path_size);
        if (_matches(caches, path, SplitPath(path), true, *judged.parent, listed).includes()) {
          verdict = IgnoreVerdict::ignored;
        }
      }
      caches._ignored_directories.store(judged, verdict);
    }
  }
  return verdict == IgnoreVerdict::ignored;
}

bool IndexScope::_ignored(std::string_view path, const SplitPath& split,
                          const Directory& known_directory, const ListedDirectory* listed) const {
  const auto caches = _caches();
  if (!split.directory.empty() &&
      _directory_ignored(*caches, split.directory, known_directory, listed)) {
    return true;
  }
  return _matches(*caches, path, split, false, known_directory, listed).includes();
}

}  // namespace path_filter

#include "utils/path_filter/git_ignore/ignore_verdicts.h"

#include <system_error>
#include <utility>
#include <variant>

#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/git_ignore/git_glob.h"
#include "utils/path_filter/git_ignore/ignore_files.h"

namespace path_filter {

using internal::Directory;

const IgnoreVerdicts::IgnoreFile IgnoreVerdicts::NO_RULES{};

std::size_t IgnoreVerdicts::IgnoreFile::bytes_to_skip() const {
  return directory == nullptr || directory->path_size == 0 ? 0 : directory->path_size + 1;
}

IgnoreVerdicts::IgnoreVerdicts(const std::string& root, const ExcludesFileLookup& excludes_file,
                               const IgnoreCase& ignore_case, internal::Links links)
    : _root(root), _excludes_file(excludes_file), _ignore_case(ignore_case), _links(links) {
  const auto* const lookup = std::get_if<IgnoreCaseLookup>(&ignore_case);
  const bool is_known = lookup == nullptr || !*lookup;
  const bool ignores = lookup == nullptr && std::get<bool>(ignore_case);
  _ignores_case = !is_known ? Asked::not_yet : ignores ? Asked::yes : Asked::no;
}

// --- The ignore files ----------------------------------------------------------

bool IgnoreVerdicts::ignores_case() {
  Asked known = _ignores_case.load(std::memory_order_acquire);
  if (known == Asked::not_yet) {
    const auto& lookup = std::get<IgnoreCaseLookup>(_ignore_case);
    const Asked answer = lookup(path_of(_root)) ? Asked::yes : Asked::no;
    // Of threads that ask at once the first is right: all rule sets are of one kind.
    if (_ignores_case.compare_exchange_strong(known, answer)) known = answer;
  }
  return known == Asked::yes;
}

/// The same for a question, once the rules of its directory have been read.
bool IgnoreVerdicts::questions_are_folded() {
  if (_ignores_case.load(std::memory_order_acquire) == Asked::not_yet) {
    _repository_excludes();  // there are no others
  }
  return _ignores_case.load(std::memory_order_acquire) == Asked::yes;
}

std::vector<std::string> IgnoreVerdicts::_exclude_files() {
  std::vector<std::string> files;
  const auto git_dir = _git_dir(_root);
  if (!git_dir) return files;
  files.push_back(internal::joined({_common_dir(*git_dir), "info/exclude"}));
  ignores_case();  // before the other lookup
  if (_excludes_file) {
    if (const auto configured = _excludes_file(path_of(_root))) {
      files.push_back(path_text(*configured));
    }
  }
  return files;
}

const std::vector<IgnoreVerdicts::IgnoreFile>& IgnoreVerdicts::_repository_excludes() {
  if (const auto* loaded = _excludes.load(std::memory_order_acquire)) return loaded->files;
  const std::string own = internal::joined({_root, ".git/info/exclude"});
  ExcludeFiles excludes;
  const auto files = _exclude_files();
  for (const std::string& path : files) {
    if (auto rules = _read_ignore_rules(path, internal::Links::follow, ignores_case())) {
      // git names the repository's own file relative to the work tree, and the configured
      // one as it is configured.
      const std::string& source =
          excludes.sources.emplace_back(path == own               ? ".git/info/exclude"
                                        : &path == &files.front() ? internal::normalized(path)
                                                                  : path);
      excludes.files.push_back({std::move(*rules), nullptr, nullptr, source});
    }
  }
  const std::lock_guard hold(_lock);
  const ExcludeFiles& kept = _exclude_lists.emplace_back(std::move(excludes));
  _excludes.store(&kept, std::memory_order_release);
  return kept.files;
}

const IgnoreVerdicts::IgnoreFile* IgnoreVerdicts::_ignore_rules(std::string_view rel_dir,
                                                                const Directory& directory) {
  if (const IgnoreFile* known = _ignore_files.find(directory)) return known;
  return read_rules(rel_dir, directory,
                    [this](std::string_view path) { return read_below_root(path); });
}

void IgnoreVerdicts::learn(std::string_view rel_dir, const Directory& directory,
                           const IgnoreFileReader& read) {
  if (_ignore_files.find(directory) == nullptr) read_rules(rel_dir, directory, read);
}

/// Reads the ignore file of the directory, and those above it that have not been read: the
/// chain goes on with the rules of the directory above.
const IgnoreVerdicts::IgnoreFile* IgnoreVerdicts::read_rules(std::string_view rel_dir,
                                                             const Directory& directory,
                                                             const IgnoreFileReader& read) {
  const auto read_one = [&](const Directory& unread, const IgnoreFile* above) {
    const std::string_view path = rel_dir.substr(0, unread.path_size);
    const internal::FileContent content = read(path);
    const auto* text = std::get_if<std::string>(&content);
    if (text == nullptr) {
      warn_unreadable(std::get<std::error_code>(content), [&] {
        return internal::joined({_root, path, IGNORE_FILE_NAME});
      });
      return above;
    }
    auto rules = GitIgnoreSpec::from_content(*text, ignores_case());
    if (!rules) return above;
    const std::lock_guard hold(_lock);
    return &std::as_const(_files.emplace_back(IgnoreFile{std::move(*rules), &unread, above, {}}));
  };
  return _ignore_files.find_or_make(directory, &NO_RULES, read_one);
}

internal::FileContent IgnoreVerdicts::read_below_root(std::string_view rel_dir) const {
  return internal::read_file_below(_root, rel_dir, std::string(IGNORE_FILE_NAME),
                                   MAX_IGNORE_FILE_BYTES, _links);
}

IgnoreVerdicts& IgnoreVerdicts::without_links() {
  const std::lock_guard hold(_lock);
  if (!_without_links) {
    _without_links = std::make_unique<IgnoreVerdicts>(_root, _excludes_file, _ignore_case,
                                                      internal::Links::refuse);
  }
  return *_without_links;
}

// --- The verdicts --------------------------------------------------------------

/// What decides about `path` by itself, which lies in `directory`.
IgnoreVerdicts::Match IgnoreVerdicts::_matches(std::string_view path, const Directory& directory,
                                               bool is_directory,
                                               GitIgnoreSpec::Question::Progress* progress) {
  const Directory* in = &directory;
  if (path.ends_with('/')) {
    // A directory by itself: it lies in the directory above what its text names.
    is_directory = true;
    path = path.substr(0, path.find_last_not_of('/') + 1);  // npos + 1 is 0
    while (in->parent != nullptr && in->path_size >= path.size()) in = in->parent;
  }
  const std::string_view rel_dir = path.substr(0, in->path_size);
  const IgnoreFile* const nearest = _ignore_rules(rel_dir, *in);
  const auto ask = [&](std::string_view asked) -> Match {
    const std::string_view name = asked.substr(rel_dir.empty() ? 0 : rel_dir.size() + 1);
    const GitIgnoreSpec::Question question(asked, name, is_directory, progress);
    for (const IgnoreFile* file = nearest; file != &NO_RULES; file = file->up) {
      if (const auto rule = file->rules.deciding_rule(question, file->bytes_to_skip())) {
        return {file, rule};
      }
    }
    for (const IgnoreFile& file : _repository_excludes()) {
      if (const auto rule = file.rules.deciding_rule(question, 0)) return {&file, rule};
    }
    return {};
  };
  return questions_are_folded() ? ask(internal::folded(path)) : ask(path);
}

/// Judges a directory, and those above it that have not been judged, from the top down. Kept
/// apart from the questions about known directories, which would take a twentieth longer.
[[gnu::noinline]] IgnoreVerdicts::Verdict IgnoreVerdicts::judge(std::string_view rel_dir,
                                                                const Directory& directory) {
  GitIgnoreSpec::Question::Progress progress;
  bool several = false;
  // What lies in an ignored directory is ignored, and its own rules are not asked.
  return _ignored_directories.find_or_make(
      directory, Verdict::not_ignored, [&](const Directory& judged, Verdict above) {
        if (above == Verdict::ignored || judged.parent == nullptr) return above;
        several |= &judged != &directory;  // without more to come, nothing is kept
        const Match match = _matches(rel_dir.substr(0, judged.path_size), *judged.parent, true,
                                     several ? &progress : nullptr);
        return match.ignores() ? Verdict::ignored : Verdict::not_ignored;
      });
}

bool IgnoreVerdicts::_directory_ignored(std::string_view rel_dir, const Directory& directory) {
  Verdict verdict = _ignored_directories.find(directory);
  if (verdict == Verdict::unknown) verdict = judge(rel_dir, directory);
  return verdict == Verdict::ignored;
}

bool IgnoreVerdicts::_ignored(std::string_view path, const Directory& directory) {
  if (directory.parent != nullptr &&
      _directory_ignored(path.substr(0, directory.path_size), directory)) {
    return true;
  }
  return _matches(path, directory, false).ignores();
}

std::optional<IgnoreRule> IgnoreVerdicts::deciding_rule(std::string_view path,
                                                        const Directory& directory) {
  const Directory* topmost = nullptr;
  for (const Directory* at = &directory; at->parent != nullptr; at = at->parent) {
    if (_directory_ignored(path.substr(0, at->path_size), *at)) topmost = at;
  }
  const Match match = topmost != nullptr
                          ? _matches(path.substr(0, topmost->path_size), *topmost->parent, true)
                          : _matches(path, directory, false);
  if (match.file == nullptr) return std::nullopt;
  const auto pattern = match.file->rules.pattern(match.rule);
  std::string source(match.file->source);
  if (match.file->directory != nullptr) {
    source = path.substr(0, match.file->bytes_to_skip());
    source += IGNORE_FILE_NAME;
  }
  return IgnoreRule{std::move(source), pattern.line, std::string(pattern.text)};
}

}  // namespace path_filter

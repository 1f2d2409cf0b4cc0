#include "utils/path_filter/tree_walk.h"

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "utils/path_filter/ignore_files.h"
#include "utils/path_filter/internal/blocking.h"
#include "utils/path_filter/internal/file_system.h"
#include "utils/path_filter/internal/paths.h"
#include "utils/path_filter/scope_state.h"

namespace path_filter {

// --- One directory ---------------------------------------------------------------

namespace internal {

/// Lists directories, judges their subdirectories and gives out their files.
class Lister {
 public:
  Lister(const IndexScope& scope, WalkErrorHandler on_error, PruneHandler on_pruned)
      : _root(scope.root),
        _scope(*scope._state),
        _on_error(std::move(on_error)),
        _on_pruned(std::move(on_pruned)) {}

  /// Lists the directory at `rel_dir`, which lies in `parent`; that is null when nobody has it
  /// at hand. `directory` is the one above, if that is open, and becomes this one. Whatever
  /// fails leaves nothing to give.
  bool list(std::string_view rel_dir, const Directory* parent, FileDescriptor& directory);

  /// The same for any directory: it is opened from the one listed last, which stays open, when
  /// it lies in that.
  bool list(std::string_view rel_dir);

  void clear();

  /// The names of the admitted subdirectories, each followed by "/"; for the caller to take.
  std::string& subdirectories() { return _subdirectories; }
  const Directory& directory() const { return _listed->directory(); }

  /// The path of the next of them.
  std::optional<std::string> next_directory();

  /// Moves on to the next file; false at the end.
  bool next_file();
  /// The file's path.
  const std::string& path() const { return _path; }
  Decision decide(FileFacts facts) const { return _listed->decide(_path, facts); }
  bool is_regular_file() const { return _listing[_next_file - 1].is_regular; }

 private:
  void judge(const Directory* parent, const FileDescriptor& directory);
  void find_top();
  int open(FileDescriptor& directory);
  FileContent read_ignore_file(std::string_view rel_dir, const FileDescriptor& directory) const;
  bool admits(bool is_link);
  void fail(int code, const std::string& below);

  const std::filesystem::path& _root;
  ScopeState& _scope;
  WalkErrorHandler _on_error;
  PruneHandler _on_pruned;
  std::optional<std::string> _top;  // the root's path without links; "" when there is none
  std::string _below;               // the directory's path
  std::string _path;                // the same, with "/" at its end, and then an entry's name
  std::size_t _prefix = 0;          // bytes of _path that are the directory
  std::optional<ListedDirectory> _listed;
  Listing _listing;
  FileDescriptor _last;  // the directory listed last, for who lists in an order of their own
  std::size_t _next_file = 0;
  std::string _subdirectories;
  std::size_t _next_directory = 0;
};

bool Lister::list(std::string_view rel_dir, const Directory* parent, FileDescriptor& directory) {
  clear();
  _below = rel_dir;
  _path = rel_dir;
  if (!rel_dir.empty()) _path += '/';
  _prefix = _path.size();

  FileDescriptor above = std::move(directory);
  int code = above.is_open()
                 ? open_directory_in(above, std::string(SplitPath(rel_dir).name), directory)
                 : open(directory);
  above = {};
  if (code == 0) code = _listing.read(directory);
  if (code != 0) {
    fail(code, _below);
    return false;
  }
  try {
    judge(parent, directory);
  } catch (...) {
    clear();
    throw;
  }
  return true;
}

bool Lister::list(std::string_view rel_dir) {
  FileDescriptor directory = std::move(_last);
  _last = {};
  if (rel_dir.empty() || SplitPath(rel_dir).directory != _below) directory = {};
  if (!list(rel_dir, nullptr, directory)) return false;
  _last = std::move(directory);
  return true;
}

void Lister::clear() {
  _listing.clear();
  _next_file = 0;
  _subdirectories.clear();
  _next_directory = 0;
}

void Lister::judge(const Directory* parent, const FileDescriptor& directory) {
  const IgnoreFileReader read = [&](std::string_view rel_dir) {
    return read_ignore_file(rel_dir, directory);
  };
  if (_below.empty()) {
    _listed.emplace(_scope, read);
  } else {
    _listed.emplace(_scope, parent != nullptr ? *parent : _scope.directory_of(_below), _below,
                    read);
  }
  for (std::size_t index = 0; index < _listing.size(); ++index) {
    const auto entry = _listing[index];
    if (!entry.is_directory) continue;
    _path.resize(_prefix);
    _path += entry.name;
    if (admits(entry.is_link) && !entry.is_link) {
      _subdirectories += entry.name;
      _subdirectories += '/';
    }
  }
}

std::optional<std::string> Lister::next_directory() {
  if (_next_directory == _subdirectories.size()) return std::nullopt;
  const std::size_t begin =
      std::exchange(_next_directory, _subdirectories.find('/', _next_directory) + 1);
  std::string path;
  path.reserve(_prefix + _next_directory - begin);
  path.append(_path, 0, _prefix).append(_subdirectories, begin, _next_directory - 1 - begin);
  return path;
}

bool Lister::next_file() {
  while (_next_file < _listing.size()) {
    const auto entry = _listing[_next_file++];
    if (entry.is_directory) continue;
    _path.resize(_prefix);
    _path += entry.name;
    return true;
  }
  return false;
}

/// The way to the root may lead through links: it is followed once, and from then on a
/// directory is opened by its whole path, in one call that takes no link.
void Lister::find_top() {
  const Blocking waits;
  std::error_code unresolved;
  _top = std::filesystem::canonical(_root, unresolved).native();
}

/// Opens the directory that _below names.
int Lister::open(FileDescriptor& directory) {
  if (!_top) find_top();
  if (!_below.empty() && !_top->empty()) {
    return open_directory_below(*_top, _below, directory, RootLinks::refuse);
  }
  return open_directory_below(_root.native(), _below, directory, RootLinks::follow);
}

/// The ignore file of the directory that is open, as its listing has it; or that of one
/// above it, which is unread only where the listing begins and when the scope has been
/// refreshed.
FileContent Lister::read_ignore_file(std::string_view rel_dir,
                                     const FileDescriptor& directory) const {
  const std::string name(IGNORE_FILE_NAME);
  if (rel_dir != _below) {
    return read_file_below_without_links(_root.native(), rel_dir, name, MAX_IGNORE_FILE_BYTES);
  }
  if (!_listing.contains(name)) return ReadError{ENOENT, {}};
  return read_file_in(directory, name, MAX_IGNORE_FILE_BYTES);
}

/// Whether the scope admits the directory that _path names.
bool Lister::admits(bool is_link) {
  std::optional<Exclusion> kind;
  try {
    kind = _listed->excludes(_path);
  } catch (const std::invalid_argument&) {
    // With its backslashes read as separators the name is an absolute path, about
    // which nothing can be asked. A stranger's directory must not end the walk.
    fail(EINVAL, _path);
    return false;
  }
  if (kind && !is_link && _on_pruned) _on_pruned(_path, *kind);
  return !kind;
}

void Lister::fail(int code, const std::string& below) {
  if (!_on_error) return;
  _on_error(std::filesystem::filesystem_error("cannot list the directory",
                                              below.empty() ? _root : _root / below,
                                              std::error_code(code, std::generic_category())));
}

}  // namespace internal

DirectoryLister::DirectoryLister(const IndexScope& scope, WalkErrorHandler on_error,
                                 PruneHandler on_pruned)
    : _lister(
          std::make_unique<internal::Lister>(scope, std::move(on_error), std::move(on_pruned))) {}

DirectoryLister::~DirectoryLister() = default;
DirectoryLister::DirectoryLister(DirectoryLister&& other) noexcept = default;
DirectoryLister& DirectoryLister::operator=(DirectoryLister&& other) noexcept = default;

bool DirectoryLister::list(std::string_view rel_dir) { return _lister->list(rel_dir); }

std::optional<std::string> DirectoryLister::next_directory() { return _lister->next_directory(); }

const std::string* DirectoryLister::next_file() {
  return _lister->next_file() ? &_lister->path() : nullptr;
}

Decision DirectoryLister::decide(FileFacts facts) const { return _lister->decide(facts); }
bool DirectoryLister::is_regular_file() const { return _lister->is_regular_file(); }

// --- The walk ----------------------------------------------------------------------

class Walk::State {
 public:
  State(const IndexScope& scope, WalkErrorHandler on_error, WalkOptions options)
      : _lister(scope, std::move(on_error), std::move(options.on_pruned)),
        _directory(std::move(options.below)) {}

  const std::string& path() const { return _lister.path(); }
  Decision decide(FileFacts facts) const { return _lister.decide(facts); }
  bool is_regular_file() const { return _lister.is_regular_file(); }

  bool advance() {
    try {
      return step();
    } catch (...) {
      _levels.clear();
      _lister.clear();
      throw;
    }
  }

 private:
  /// A directory whose subdirectories are being visited.
  struct Level {
    const internal::Directory* directory;
    std::size_t prefix;  // bytes of _directory that are it, its "/" included
    std::string names;   // of the admitted subdirectories, each followed by "/"
    std::size_t next;    // where the next one begins
  };

  bool step();
  void visit(const internal::Directory* parent, internal::FileDescriptor& last);

  internal::Lister _lister;
  bool _begun = false;
  std::string _directory;  // the one being visited
  std::vector<Level> _levels;
};

Walk IndexScope::walk(WalkErrorHandler on_error) const& { return walk(std::move(on_error), {}); }

Walk IndexScope::walk(WalkErrorHandler on_error, WalkOptions options) const& {
  return Walk(*this, std::move(on_error), std::move(options));
}

Walk::Walk(const IndexScope& scope, WalkErrorHandler on_error, WalkOptions options)
    : _state(std::make_unique<State>(scope, std::move(on_error), std::move(options))) {}

Walk::~Walk() = default;
Walk::Walk(Walk&& other) noexcept = default;
Walk& Walk::operator=(Walk&& other) noexcept = default;

const std::string& Walk::path() const { return _state->path(); }
bool Walk::advance() { return _state->advance(); }
Decision Walk::decide(FileFacts facts) const { return _state->decide(facts); }
bool Walk::is_regular_file() const { return _state->is_regular_file(); }

bool Walk::State::step() {
  // The directory that this step listed last, open until its end: one without files is gone
  // down from directly.
  internal::FileDescriptor last;
  if (!_begun) {
    _begun = true;
    visit(nullptr, last);
  }
  for (;;) {
    if (_lister.next_file()) return true;
    while (!_levels.empty() && _levels.back().next == _levels.back().names.size()) {
      _levels.pop_back();
      last = {};
    }
    if (_levels.empty()) return false;
    Level& level = _levels.back();
    const std::size_t end = level.names.find('/', level.next);
    _directory.resize(level.prefix);
    _directory.append(level.names, level.next, end - level.next);
    level.next = end + 1;
    visit(level.directory, last);
  }
}

/// Lists the directory that _directory names. `last` is the directory above it, if that is
/// open, and becomes this one if it has subdirectories to visit.
void Walk::State::visit(const internal::Directory* parent, internal::FileDescriptor& last) {
  if (!_lister.list(_directory, parent, last) || _lister.subdirectories().empty()) {
    last = {};
    return;
  }
  if (!_directory.empty()) _directory += '/';
  _levels.push_back(
      {&_lister.directory(), _directory.size(), std::exchange(_lister.subdirectories(), {}), 0});
}

}  // namespace path_filter

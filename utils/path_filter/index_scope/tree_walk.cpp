#include "utils/path_filter/index_scope/tree_walk.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "utils/path_filter/base/file_system.h"
#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/index_scope/scope_state.h"

namespace path_filter {

using internal::Directory;
using internal::FileHandle;

ScopeDirectory::ScopeDirectory(const IndexScope& scope, std::string_view rel_dir)
    : _directory(&scope._state->directories()[rel_dir]) {}

std::string ScopeDirectory::path() const {
  std::string path(_directory->path_size, '/');
  for (const Directory* at = _directory; at->parent != nullptr; at = at->parent) {
    at->name().copy(path.data() + at->path_size - at->name_size, at->name_size);
  }
  return path;
}

// --- One directory after the other -------------------------------------------------

struct DirectoryLister::State {
  State(const IndexScope& scope, WalkErrorHandler on_error, PruneHandler on_pruned)
      : _scope(*scope._state), _on_error(std::move(on_error)), _on_pruned(std::move(on_pruned)) {}

  bool list(const Directory& directory, bool judged);

  /// Gives nothing any more.
  void clear();

  /// Lets go of the directory that was listed last.
  void close() { _opened = {}; }

  /// From so many levels on a way up is taken: a shorter one down from the root costs no more.
  static constexpr std::size_t DEEP = 16;

  /// A directory that was listed on the way down to the last one.
  struct Passed {
    const Directory* directory;
    std::size_t depth;
    std::optional<internal::FileIdentity> identity;  // of a deep one that holds others
  };

  std::error_code open(const Directory& directory);
  std::error_code open_from_root();
  bool go_back_to(const Directory* directory);
  void learn_rules();
  internal::FileContent read_ignore_file(std::string_view rel_dir) const;
  std::optional<Exclusion> exclusion_of_directory(const Directory& directory) const;
  bool admits(const Directory& directory, bool is_link);
  void fail(std::error_code error, std::string_view rel_path);
  std::string_view listed_path() const { return std::string_view(_path).substr(0, _path_size); }

  internal::ScopeState& _scope;
  WalkErrorHandler _on_error;
  PruneHandler _on_pruned;
  std::optional<std::string> _top;  // the root's path without links; "" when there is none
  FileHandle _opened;               // the directory listed last
  std::vector<Passed> _way;         // to it, itself last, as far as it is known
  const Directory* _directory = nullptr;
  std::string _path;           // its path, with "/" at its end, and then an entry's name
  std::size_t _path_size = 0;  // bytes of _path that are the directory, without that "/"
  std::size_t _prefix = 0;     // with it
  std::shared_ptr<IgnoreVerdicts> _verdicts;  // for all that is in it; null: unjudged
  internal::Listing _listing;
  std::size_t _next_file = 0;
  std::vector<const Directory*> _subdirectories;
  std::size_t _next_directory = 0;
};

bool DirectoryLister::State::list(const Directory& directory, bool judged) {
  clear();
  try {
    std::error_code error = open(directory);
    _directory = &directory;
    if (!error) error = _listing.read(_opened);
    if (error) {
      close();
      if (judged) fail(error, listed_path());
      return false;
    }
    if (judged) learn_rules();
    for (std::size_t index = 0; index < _listing.size(); ++index) {
      const auto entry = _listing[index];
      if (!entry.is_directory) continue;
      _path.resize(_prefix);
      _path += entry.name;
      const Directory& below = _scope.directories().child(directory, _path);
      const bool is_admitted = !judged || admits(below, entry.is_link);
      if (is_admitted && !entry.is_link) _subdirectories.push_back(&below);
    }
    Passed& passed = _way.back();
    if (!_subdirectories.empty() && passed.depth + 1 >= DEEP) {
      passed.identity = internal::identity(_opened);
    }
  } catch (...) {
    clear();
    throw;
  }
  return true;
}

void DirectoryLister::State::clear() {
  _verdicts.reset();
  _listing.clear();
  _next_file = 0;
  _subdirectories.clear();
  _next_directory = 0;
}

// --- The way to a directory ----------------------------------------------------------

/// Makes `directory` the one that is open, and _path its path.
std::error_code DirectoryLister::State::open(const Directory& directory) {
  const bool is_known = go_back_to(directory.parent);
  if (is_known) {
    _path.resize(directory.path_size - directory.name_size);
    _path += directory.name();
  } else {
    _path = ScopeDirectory(directory).path();
  }
  _path_size = _path.size();
  if (!_path.empty()) _path += '/';
  _prefix = _path.size();

  const FileHandle above = std::exchange(_opened, {});
  const std::error_code error =
      above.is_open() ? internal::open_directory_in(above, std::string(directory.name()), _opened)
                      : open_from_root();
  if (error) return error;
  std::size_t depth = 0;
  if (is_known) {
    depth = _way.back().depth + 1;
  } else {
    for (const Directory* at = directory.parent; at != nullptr; at = at->parent) ++depth;
  }
  _way.push_back({&directory, depth, std::nullopt});
  return {};
}

/// Shortens the way to one that ends at `directory`, and opens that if it is worth it: a step up
/// takes the system as long as some DEEP down. False, with nothing open, when `directory` is not
/// on the way or is null.
bool DirectoryLister::State::go_back_to(const Directory* directory) {
  const auto on_way = std::find_if(_way.rbegin(), _way.rend(), [&](const Passed& passed) {
    return directory != nullptr && passed.directory->path_size <= directory->path_size;
  });
  if (on_way == _way.rend() || on_way->directory != directory) {
    _way.clear();
    close();
    return false;
  }
  const auto steps = static_cast<std::size_t>(on_way - _way.rbegin());
  _way.resize(_way.size() - steps);
  if (steps > 0 && _opened.is_open()) {
    const FileHandle last = std::exchange(_opened, {});
    FileHandle above;
    // The last one may have been moved meanwhile: it then leads up to some other directory.
    const auto& expected = _way.back().identity;
    if (steps * DEEP <= _way.back().depth && expected &&
        !internal::open_above(last, steps, above) && internal::identity(above) == expected) {
      _opened = std::move(above);
    }
  }
  return true;
}

/// The way to the root may lead through links: it is followed once, and from then on a
/// directory is opened by its whole path, in one call that takes no link.
std::error_code DirectoryLister::State::open_from_root() {
  if (!_top) {
    std::error_code unresolved;
    _top = internal::real_path(_scope.root(), unresolved);
  }
  if (_path_size > 0 && !_top->empty()) {
    return internal::open_directory_below(*_top, listed_path(), _opened, internal::Links::refuse);
  }
  return internal::open_directory_below(_scope.root(), listed_path(), _opened);
}

// --- What is in it -------------------------------------------------------------------

// A backslash in a name separates components for a question, but not on disk. Such a path
// does not lie where its text says, and what lies there may be a link: it is answered from
// rules that were read without following one, and leaves nothing in those of the others.

/// Reads the ignore files on the way that this state of the rules does not know yet.
void DirectoryLister::State::learn_rules() {
  _verdicts = _scope.verdicts();
  if (listed_path().find('\\') != std::string_view::npos) return;
  _verdicts->learn(listed_path(), *_directory,
                   [this](std::string_view rel_dir) { return read_ignore_file(rel_dir); });
}

/// The kind of rule by which the scope refuses `directory`, which _path names.
std::optional<Exclusion> DirectoryLister::State::exclusion_of_directory(
    const Directory& directory) const {
  std::string storage;
  const std::string_view posix = _relative_posix(_path, storage);
  if (storage.empty()) return _scope.exclusion_of_directory(posix, directory, *_verdicts);
  return _scope.exclusion_of_directory(posix, _scope.directories()[posix],
                                       _verdicts->without_links());
}

/// The ignore file of the directory that is open, as its listing has it; or that of one
/// above it, which is unread only where the listing begins and when the scope has been
/// refreshed.
internal::FileContent DirectoryLister::State::read_ignore_file(std::string_view rel_dir) const {
  const std::string name(IGNORE_FILE_NAME);
  if (rel_dir.size() != _path_size) {
    return internal::read_file_below(_scope.root(), rel_dir, name, MAX_IGNORE_FILE_BYTES,
                                     internal::Links::refuse);
  }
  if (!_listing.contains(name)) return make_error_code(std::errc::no_such_file_or_directory);
  return internal::read_file_in(_opened, name, MAX_IGNORE_FILE_BYTES);
}

/// Whether the scope admits the directory that _path names.
bool DirectoryLister::State::admits(const Directory& directory, bool is_link) {
  std::optional<Exclusion> kind;
  try {
    kind = exclusion_of_directory(directory);
  } catch (const std::invalid_argument&) {
    // With its backslashes read as separators the name is an absolute path, about
    // which nothing can be asked. A stranger's directory must not end the walk.
    fail(make_error_code(std::errc::invalid_argument), _path);
    return false;
  }
  if (kind && !is_link && _on_pruned) _on_pruned(ScopeDirectory(directory), _path, *kind);
  return !kind;
}

void DirectoryLister::State::fail(std::error_code error, std::string_view rel_path) {
  if (!_on_error) return;
  _on_error(std::filesystem::filesystem_error(
      "cannot list the directory", path_of(internal::joined({_scope.root(), rel_path})), error));
}

DirectoryLister::DirectoryLister(const IndexScope& scope, WalkErrorHandler on_error,
                                 PruneHandler on_pruned)
    : _state(std::make_unique<State>(scope, std::move(on_error), std::move(on_pruned))) {}

DirectoryLister::~DirectoryLister() = default;
DirectoryLister::DirectoryLister(DirectoryLister&& other) noexcept = default;
DirectoryLister& DirectoryLister::operator=(DirectoryLister&& other) noexcept = default;

bool DirectoryLister::list(ScopeDirectory directory) {
  return _state->list(*directory._directory, /*judged=*/true);
}

bool DirectoryLister::list_unjudged(ScopeDirectory directory) {
  return _state->list(*directory._directory, /*judged=*/false);
}

std::optional<ScopeDirectory> DirectoryLister::next_directory() {
  if (_state->_next_directory == _state->_subdirectories.size()) return std::nullopt;
  return ScopeDirectory(*_state->_subdirectories[_state->_next_directory++]);
}

const std::string* DirectoryLister::next_file() {
  State& state = *_state;
  while (state._next_file < state._listing.size()) {
    const auto entry = state._listing[state._next_file++];
    if (entry.is_directory) continue;
    state._path.resize(state._prefix);
    state._path += entry.name;
    return &state._path;
  }
  return nullptr;
}

Decision DirectoryLister::decide(FileFacts facts) const {
  const State& state = *_state;
  std::string storage;
  const std::string_view path = _relative_posix(state._path, storage);
  if (storage.empty()) {
    return state._scope.decide(path, *state._directory, *state._verdicts, facts);
  }
  return state._scope.decide(path, state._scope.directory_of(path),
                             state._verdicts->without_links(), facts);
}

bool DirectoryLister::is_regular_file() const {
  return _state->_listing[_state->_next_file - 1].is_regular;
}

std::optional<std::int64_t> DirectoryLister::file_size(std::error_code& error) const {
  const std::string name = _state->_path.substr(_state->_prefix);
  const auto status = internal::status_in(_state->_opened, name, error);
  return status ? std::optional(status->size) : std::nullopt;
}

// --- The walk ----------------------------------------------------------------------

Walk IndexScope::walk(WalkErrorHandler on_error) const& { return Walk(*this, std::move(on_error)); }

Walk::Walk(const IndexScope& scope, WalkErrorHandler on_error)
    : _lister(scope, std::move(on_error)), _pending{ScopeDirectory(scope, "")} {}

bool Walk::advance() {
  while ((_path = _lister.next_file()) == nullptr) {
    if (_pending.empty()) return false;
    const ScopeDirectory directory = _pending.back();
    _pending.pop_back();
    try {
      _lister.list(directory);
    } catch (...) {
      _pending.clear();
      throw;
    }
    const auto below = static_cast<std::ptrdiff_t>(_pending.size());
    while (const auto next = _lister.next_directory()) _pending.push_back(*next);
    std::reverse(_pending.begin() + below, _pending.end());
  }
  _lister._state->close();
  return true;
}

}  // namespace path_filter

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
#include "utils/path_filter/scope_state.h"

namespace path_filter {

using internal::FileContent;
using internal::FileDescriptor;

class Walk::State {
 public:
  State(const IndexScope& scope, internal::ScopeState& state, WalkErrorHandler on_error,
        WalkOptions options)
      : _root(scope.root),
        _scope(state),
        _on_error(std::move(on_error)),
        _options(std::move(options)),
        _path(_options.below.empty() ? "" : _options.below + '/') {}

  const std::string& path() const { return _path; }
  Decision decide(FileFacts facts) const { return _listed->decide(_path, facts); }

  bool advance() {
    try {
      return step();
    } catch (...) {
      _levels.clear();
      _listing.clear();
      throw;
    }
  }

 private:
  /// A directory whose subdirectories are being visited.
  struct Level {
    const internal::Directory* directory;
    std::size_t prefix;  // bytes of _path that are the directory, its "/" included
    std::string names;   // of the admitted subdirectories, each followed by "/"
    std::size_t next;    // where the next one begins
  };

  bool step();
  void visit(FileDescriptor& last);
  void find_top();
  int open(FileDescriptor& directory);
  FileContent read_ignore_file(std::string_view rel_dir, const FileDescriptor& directory) const;
  bool admits(bool is_link);
  void fail(int code, const std::string& below);

  const std::filesystem::path& _root;
  internal::ScopeState& _scope;
  WalkErrorHandler _on_error;
  WalkOptions _options;
  bool _begun = false;
  std::string _top;  // the root's path without links
  std::vector<Level> _levels;
  std::string _path;  // the directory being produced, and then the file
  std::size_t _prefix = 0;
  std::string _below;  // the directory's path without its "/"
  std::optional<internal::ListedDirectory> _listed;
  internal::Listing _listing;  // of the directory whose files are being produced
  std::size_t _next_file = 0;
};

Walk IndexScope::walk(WalkErrorHandler on_error) const& { return walk(std::move(on_error), {}); }

Walk IndexScope::walk(WalkErrorHandler on_error, WalkOptions options) const& {
  return Walk(*this, std::move(on_error), std::move(options));
}

Walk::Walk(const IndexScope& scope, WalkErrorHandler on_error, WalkOptions options)
    : _state(
          std::make_unique<State>(scope, *scope._state, std::move(on_error), std::move(options))) {}

Walk::~Walk() = default;
Walk::Walk(Walk&& other) noexcept = default;
Walk& Walk::operator=(Walk&& other) noexcept = default;

const std::string& Walk::path() const { return _state->path(); }
bool Walk::advance() { return _state->advance(); }
Decision Walk::decide(FileFacts facts) const { return _state->decide(facts); }

bool Walk::State::step() {
  FileDescriptor last;  // the directory that this step listed last, open until its end
  if (!_begun) {
    _begun = true;
    find_top();
    visit(last);
  }
  for (;;) {
    while (_next_file < _listing.size()) {
      const auto entry = _listing[_next_file++];
      if (entry.is_directory) continue;
      _path.resize(_prefix);
      _path += entry.name;
      return true;
    }
    while (!_levels.empty() && _levels.back().next == _levels.back().names.size()) {
      _levels.pop_back();
      last = {};
    }
    if (_levels.empty()) return false;
    Level& level = _levels.back();
    const std::size_t end = level.names.find('/', level.next) + 1;
    _path.resize(level.prefix);
    _path.append(level.names, level.next, end - level.next);
    level.next = end;
    visit(last);
  }
}

/// Lists the directory that _path names (with a "/" at its end, or "" for the root) and
/// judges its subdirectories. `last` is the directory above it, if that is open, and becomes
/// this one if it has subdirectories to visit.
void Walk::State::visit(FileDescriptor& last) {
  const std::size_t above = _levels.empty() ? 0 : _levels.back().prefix;
  _prefix = _path.size();
  _next_file = 0;
  _listing.clear();
  _below.assign(_path, 0, _path.empty() ? 0 : _path.size() - 1);

  FileDescriptor directory;
  int code = last.is_open() ? internal::open_directory_in(last, _below.substr(above), directory)
                            : open(directory);
  last = {};
  if (code == 0) code = _listing.read(directory);
  if (code != 0) {
    fail(code, _below);
    return;
  }

  const IgnoreFileReader read = [&](std::string_view rel_dir) {
    return read_ignore_file(rel_dir, directory);
  };
  if (_below.empty()) {
    _listed.emplace(_scope, read);
  } else {
    const auto& parent = _levels.empty() ? _scope.directory_of(_below) : *_levels.back().directory;
    _listed.emplace(_scope, parent, _below, read);
  }
  Level level{&_listed->directory(), _prefix, {}, 0};
  for (std::size_t index = 0; index < _listing.size(); ++index) {
    const auto entry = _listing[index];
    if (!entry.is_directory) continue;
    _path.resize(_prefix);
    _path += entry.name;
    if (admits(entry.is_link) && !entry.is_link) {
      level.names += entry.name;
      level.names += '/';
    }
  }
  _path.resize(_prefix);
  if (level.names.empty()) return;
  _levels.push_back(std::move(level));
  last = std::move(directory);
}

/// The way to the root may lead through links: it is followed once, and from then on a
/// directory is opened by its whole path, in one call that takes no link.
void Walk::State::find_top() {
  const internal::Blocking waits;
  std::error_code unresolved;
  _top = std::filesystem::canonical(_root, unresolved).native();
}

/// Opens the directory that _below names.
int Walk::State::open(FileDescriptor& directory) {
  if (!_below.empty() && !_top.empty()) {
    return internal::open_directory_below(_top, _below, directory, internal::RootLinks::refuse);
  }
  return internal::open_directory_below(_root.native(), _below, directory,
                                        internal::RootLinks::follow);
}

/// The ignore file of the directory that is open, as its listing has it; or that of one
/// above it, which is unread only where the walk begins and when the scope has been refreshed.
FileContent Walk::State::read_ignore_file(std::string_view rel_dir,
                                          const FileDescriptor& directory) const {
  const std::string name(IGNORE_FILE_NAME);
  if (rel_dir != _below) {
    return internal::read_file_below_without_links(_root.native(), rel_dir, name,
                                                   MAX_IGNORE_FILE_BYTES);
  }
  if (!_listing.contains(name)) return internal::ReadError{ENOENT, {}};
  return internal::read_file_in(directory, name, MAX_IGNORE_FILE_BYTES);
}

/// Whether the scope admits the directory that _path names.
bool Walk::State::admits(bool is_link) {
  std::optional<Exclusion> kind;
  try {
    kind = _listed->excludes(_path);
  } catch (const std::invalid_argument&) {
    // With its backslashes read as separators the name is an absolute path, about
    // which nothing can be asked. A stranger's directory must not end the walk.
    fail(EINVAL, _path);
    return false;
  }
  if (kind && !is_link && _options.on_pruned) _options.on_pruned(_path, *kind);
  return !kind;
}

void Walk::State::fail(int code, const std::string& below) {
  if (!_on_error) return;
  _on_error(std::filesystem::filesystem_error("cannot list the directory",
                                              below.empty() ? _root : _root / below,
                                              std::error_code(code, std::generic_category())));
}

}  // namespace path_filter

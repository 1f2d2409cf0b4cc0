#include "utils/path_filter/tree_walk.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "utils/path_filter/decision.h"
#include "utils/path_filter/index_scope.h"
#include "utils/path_filter/internal/listed_directory.h"

namespace path_filter {

Walk::Walk(const IndexScope& scope, WalkErrorHandler on_error, WalkOptions options)
    : _scope(&scope), _on_error(std::move(on_error)), _options(std::move(options)) {}

bool Walk::advance() {
  try {
    return step();
  } catch (...) {
    _levels.clear();
    _listing.clear();
    throw;
  }
}

bool Walk::step() {
  if (!_begun) {
    _begun = true;
    visit();
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
    }
    if (_levels.empty()) return false;
    Level& level = _levels.back();
    const std::size_t end = level.names.find('/', level.next) + 1;
    _path.resize(level.prefix);
    _path.append(level.names, level.next, end - level.next);
    level.next = end;
    visit();
  }
}

Decision Walk::decide(FileFacts facts) const {
  std::string storage;
  // A backslash in a name separates components for a question, but not on disk: such a
  // path does not lie in the directory that is listed.
  if (_relative_posix(_path, storage).data() != _path.data()) {
    return _scope->is_indexable(_path, facts);
  }
  const internal::FileDescriptor closed;
  const ListedDirectory listed{closed, _below, _listing};
  return _scope->_decide(_path, internal::SplitPath(_path), *_directory, facts, &listed);
}

/// Lists the directory that _path names (with a "/" at its end, or "" for the root)
/// and judges its subdirectories.
void Walk::visit() {
  _prefix = _path.size();
  _next_file = 0;
  _listing.clear();
  _below.assign(_path, 0, _path.empty() ? 0 : _path.size() - 1);

  internal::FileDescriptor directory;
  int code = open(directory);
  if (code == 0) code = _listing.read(directory);
  if (code != 0) {
    fail(code, _below);
    return;
  }

  const ListedDirectory listed{directory, _below, _listing};
  _directory = &_scope->_directories[_below];
  Level level{_prefix, {}, 0};
  for (std::size_t index = 0; index < _listing.size(); ++index) {
    const auto entry = _listing[index];
    if (!entry.is_directory) continue;
    _path.resize(_prefix);
    _path += entry.name;
    if (admits(listed, entry.is_link) && !entry.is_link) {
      level.names += entry.name;
      level.names += '/';
    }
  }
  _path.resize(_prefix);
  if (!level.names.empty()) _levels.push_back(std::move(level));
}

/// Opens the directory that _below names. The way to the root may lead through links: it
/// is followed once, and from then on a directory is opened by its whole path, in one call
/// that takes no link.
int Walk::open(internal::FileDescriptor& directory) {
  const std::string& root = _scope->root.native();
  if (!_below.empty() && !_top.empty()) {
    return internal::open_directory_below(_top, _below, directory, internal::RootLinks::refuse);
  }
  std::error_code unresolved;
  if (_below.empty()) _top = std::filesystem::canonical(_scope->root, unresolved).native();
  return internal::open_directory_below(root, _below, directory, internal::RootLinks::follow);
}

/// Whether the scope admits the directory that _path names.
bool Walk::admits(const ListedDirectory& listed, bool is_link) {
  std::string storage;
  std::string_view path = _path;
  try {
    path = _relative_posix(_path, storage);
  } catch (const std::invalid_argument&) {
    // With its backslashes read as separators the name is an absolute path, about
    // which nothing can be asked. A stranger's directory must not end the walk.
    fail(EINVAL, _path);
    return false;
  }
  const auto kind = _scope->_excludes_directory(path, &listed);
  if (kind && !is_link && _options.on_pruned) _options.on_pruned(_path, *kind);
  return !kind;
}

void Walk::fail(int code, const std::string& below) {
  if (!_on_error) return;
  const std::filesystem::path& root = _scope->root;
  _on_error(std::filesystem::filesystem_error("cannot list the directory",
                                              below.empty() ? root : root / below,
                                              std::error_code(code, std::generic_category())));
}

}  // namespace path_filter

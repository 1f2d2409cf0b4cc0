#include "program/judge.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "program/output.h"
#include "utils/path_filter/base/paths.h"

namespace program {

using path_filter::Decision;
using path_filter::Explanation;
using path_filter::internal::FileType;
using path_filter::internal::Links;

namespace {

/// Whether each component of a relative path is a name: nothing is to be resolved.
bool has_plain_names(std::string_view path) {
  for (std::size_t begin = 0; begin < path.size();) {
    const std::string_view name = path.substr(begin, path.find('/', begin) - begin);
    if (name.empty() || name == "." || name == "..") return false;
    begin += name.size() + 1;
  }
  return true;
}

/// The path of a directory without a "/" at its end.
std::string without_end(std::string path) {
  if (path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace

OnDisk::Entry OnDisk::look(const std::string& root, std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view above = path.substr(0, slash == path.npos ? 0 : slash);
  if (above != _above || root != _root) {
    close();
    _error = path_filter::internal::open_directory_below(root, above, _opened, Links::refuse);
    if (_error == std::errc::too_many_files_open || _error == std::errc::not_enough_memory ||
        _error == std::errc::too_many_files_open_in_system) {
      throw std::system_error(_error, "cannot look at its directory");
    }
    _root = root;
    _above = above;
  }
  if (!_opened.is_open()) {
    const bool may_be_link =
        _error == std::errc::too_many_symbolic_link_levels || _error == std::errc::not_a_directory;
    return {std::nullopt, _error, may_be_link && first_link(root, above)};
  }
  Entry entry;
  entry.status =
      path_filter::internal::status_in(_opened, _name.assign(path.substr(slash + 1)), entry.error);
  return entry;
}

void OnDisk::close() {
  _above.reset();
  _opened = {};
}

Judge::Judge(Repositories& repositories, const std::optional<std::string>& root)
    : _repositories(repositories),
      _has_root(root),
      _base(without_end(resolved_directory(root.value_or(".")))),
      _base_root{_base.size(), &_repositories.at(_base + '/')} {}

Judge::Answer Judge::ask(std::string_view path, bool verbose) {
  Located located = locate(path);
  const Repository& repository = located.repository;
  path_filter::FileFacts facts;
  if (!located.path.empty()) {
    const OnDisk::Entry entry = _on_disk.look(repository.root, located.path);
    if (entry.behind_link) throw std::invalid_argument("beyond a symbolic link");
    if (entry.status) {
      facts.size = entry.status->size;
      switch (entry.status->type) {
        case FileType::link:
          throw std::invalid_argument("a symbolic link");
        case FileType::other:
          throw std::invalid_argument("neither a file nor a directory");
        case FileType::directory:
          if (!located.is_directory) return ask(std::string(path) + '/', verbose);
          break;
        case FileType::regular:
          if (located.is_directory) throw std::invalid_argument("Not a directory");
          break;
      }
    } else if (repository.scope.limits && !is_absence(entry.error) && !located.is_directory) {
      throw std::invalid_argument(unknown_size(entry.error));
    }
  }
  if (located.is_directory) {
    auto explanation = repository.exclusion_of_directory(located.path);
    return {repository, std::move(located.path), true,
            explanation ? *std::move(explanation) : Explanation{Decision(true)}};
  }
  Explanation explanation = verbose
                                ? repository.explain(located.path, facts)
                                : Explanation{repository.scope.is_indexable(located.path, facts)};
  return {repository, std::move(located.path), false, std::move(explanation)};
}

bool Judge::is_file(const std::string& path) const {
  std::error_code unexamined;
  const auto status = path_filter::internal::status(
      path_filter::internal::resolved(_base + '/', path), Links::follow, unexamined);
  return status && status->type != FileType::directory;
}

void Judge::forget() {
  _on_disk.close();
  _way.reset();
  _roots.clear();
}

Judge::Located Judge::locate(std::string_view given) {
  std::string storage;
  std::string_view path = path_filter::internal::native_path(given, storage);
  if (path.empty()) throw std::invalid_argument("an empty path");
  if (path.find('\0') != path.npos) {
    throw std::invalid_argument("no path holds NUL; paths that end with it are for -0");
  }
  while (path.starts_with("./") && path.find_first_not_of('/', 2) != path.npos) {
    path.remove_prefix(path.find_first_not_of('/', 2));
  }
  bool is_directory = false;
  if (has_plain_names(path) && !path_filter::internal::is_absolute(path)) {  // as git lists them
    if (path.ends_with('/')) {
      path.remove_suffix(1);
      is_directory = true;
    }
    if (_has_root) return {*_base_root.repository, std::string(path), is_directory};
    (_absolute.assign(_base) += '/') += path;
  } else {
    // As find lists them; on Windows "/a" is not all of a path.
    const bool is_whole = path.starts_with('/') ? _base.starts_with('/') && _base[1] != '/'
                                                : path_filter::internal::is_absolute(path);
    _absolute =
        is_whole && has_plain_names(path.substr(path.starts_with('/') ? 1 : 0))
            ? std::string(path)
            : path_filter::internal::normalized(path_filter::internal::resolved(_base + '/', path));
    is_directory = _absolute.ends_with('/');
    _absolute = without_end(_absolute);
  }
  const auto directory = [&] {
    return std::string_view(_absolute).substr(0,
                                              is_directory ? _absolute.npos : _absolute.rfind('/'));
  };
  const Root* root = root_of(directory());
  if (root == nullptr && !_absolute.empty()) {
    // Links may lead to one: the shell's name of the current directory has such.
    const path_filter::internal::SplitPath spelt(_absolute);
    std::error_code unresolved;
    const auto above =
        path_filter::internal::real_path(std::string(spelt.directory) + '/', unresolved);
    if (!unresolved) _absolute = without_end(path_filter::internal::joined({above, spelt.name}));
    root = root_of(directory());
  }
  if (root == nullptr) {
    throw std::invalid_argument(_has_root ? "outside the root " + printable(_base + '/')
                                          : "in no repository; --root names one");
  }
  // The root's own path has no "/" after it.
  const std::size_t begin = std::min(root->size + 1, _absolute.size());
  return {*root->repository, _absolute.substr(begin), is_directory};
}

/// The root that the absolute `directory` belongs to, or null; "" is "/". What the way to it shares
/// with that of the last question is not looked at again.
const Judge::Root* Judge::root_of(std::string_view directory) {
  std::size_t known = 0;  // bytes of the way
  if (_way == directory) {
    known = directory.size();
  } else if (_way) {
    const std::string_view way = *_way;
    const auto [end, other] = std::ranges::mismatch(way, directory);
    known = static_cast<std::size_t>(end - way.begin());
    const bool is_whole = (known == way.size() || way[known] == '/') &&
                          (known == directory.size() || directory[known] == '/');
    if (!is_whole) known = std::max<std::size_t>(way.substr(0, known).rfind('/') + 1, 1) - 1;
  }
  while (!_roots.empty() && _roots.back().size > known) _roots.pop_back();
  std::size_t first = std::exchange(_way, std::nullopt) ? known + 1 : 0;
  if (directory.starts_with("//")) {  // a way begins below a server: with a share
    first = std::max(first, std::min(directory.find('/', 2), directory.size()) + 1);
  }
  for (std::size_t end = first; end <= directory.size(); ++end) {
    end = std::min(directory.find('/', end), directory.size());
    const std::string prefix = std::string(directory.substr(0, end)) + '/';
    if (is_root(prefix)) {
      _roots.push_back({end, &_repositories.at(prefix)});
    } else if (std::error_code missing;
               end < directory.size() &&
               !path_filter::internal::status(prefix, Links::follow, missing)) {
      break;  // nothing is below what is not there
    }
  }
  _way = directory;
  if (!_roots.empty()) return _has_root ? &_roots.front() : &_roots.back();
  const bool is_inside = directory.starts_with(_base) &&
                         (directory.size() == _base.size() || directory[_base.size()] == '/');
  return is_inside && !_has_root ? &_base_root : nullptr;
}

/// Whether the directory, whose path ends in "/", is a root.
bool Judge::is_root(const std::string& directory) const {
  using path_filter::path_of;
  std::error_code unexamined;
  return _has_root
             ? std::filesystem::equivalent(path_of(directory), path_of(_base + '/'), unexamined)
             : has_git(directory);
}

}  // namespace program

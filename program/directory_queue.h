#ifndef PROGRAM_DIRECTORY_QUEUE_H_
#define PROGRAM_DIRECTORY_QUEUE_H_

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

#include "utils/path_filter/index_scope/tree_walk.h"

namespace program {

using path_filter::ScopeDirectory;

/// The directories of a tree that wait to be listed, for threads that take one after the other
/// and put in what they find. The newest is taken first: what waits stays as small as for one
/// thread, which goes depth first.
///
/// One lock for all of them is enough: a directory costs a hundred times what it is held for.
class DirectoryQueue {
 public:
  explicit DirectoryQueue(ScopeDirectory first) : _waiting{first} {}

  /// A directory to list, or absent when there is none and no thread can find another. Waits
  /// while one may. The caller has finished the directory that it took before.
  std::optional<ScopeDirectory> take(bool has_finished_one) {
    std::unique_lock lock(_mutex);
    if (has_finished_one && --_taken == 0 && _waiting.empty()) _changed.notify_all();
    _changed.wait(lock, [&] { return _stopped || !_waiting.empty() || _taken == 0; });
    if (_stopped || _waiting.empty()) return std::nullopt;
    const ScopeDirectory directory = _waiting.back();
    _waiting.pop_back();
    ++_taken;
    return directory;
  }

  /// Adds directories that are below the one that the caller has taken; the last is taken first.
  /// False when no more are to be listed.
  bool add(const std::vector<ScopeDirectory>& directories) {
    const std::lock_guard lock(_mutex);
    _waiting.insert(_waiting.end(), directories.begin(), directories.end());
    if (!directories.empty()) _changed.notify_all();
    return !_stopped;
  }

  /// Lets no thread take another.
  void stop() {
    const std::lock_guard lock(_mutex);
    _stopped = true;
    _changed.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<ScopeDirectory> _waiting;
  std::size_t _taken = 0;  // and not finished
  bool _stopped = false;
};

}  // namespace program

#endif  // PROGRAM_DIRECTORY_QUEUE_H_

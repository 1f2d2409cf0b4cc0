// The directories that a scope has been asked about, and what it knows of each.
//
// A DirectoryTable gives every directory path a number, found with one hash lookup; a
// DirectoryMap holds one value for each number. A question about a file looks its
// directory up once and then reads the scope's caches by number.
//
// Readers take no lock and write nothing that another thread reads. Nothing is ever
// removed, so what was found stays valid as long as the table or map.

#ifndef UTILS_PATH_FILTER_DIRECTORY_TABLE_H_
#define UTILS_PATH_FILTER_DIRECTORY_TABLE_H_

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <string_view>
#include <vector>

#include "utils/path_filter/internal/hash.h"

namespace path_filter::internal {

/// A directory of a repository. Paths are split at each "/" and kept as their last
/// component and a pointer to what is before it, so that a directory costs the length
/// of its name, however deep it lies.
struct Directory {
  const Directory* parent;  // null for the root, whose path is ""
  std::uint64_t hash;       // hash_text of the path
  std::uint32_t path_size;  // in bytes
  std::uint32_t name_size;
  std::uint32_t number;  // the root's is 0

  /// The last component. Its bytes follow the record, which only the table makes.
  std::string_view name() const { return {reinterpret_cast<const char*>(this + 1), name_size}; }
};

class DirectoryTable {
 public:
  DirectoryTable();

  const Directory& root() const { return *_root; }

  /// The directory of this path; added, with those above it, when it is new. Any
  /// thread may call it.
  const Directory& operator[](std::string_view path) {
    const Directory* found = find(path);
    return found != nullptr ? *found : add(path);
  }

  /// The same for a path whose directory above is `parent`. It costs one hash of the path,
  /// however many directories are above: for who goes down a deep tree step by step.
  const Directory& child(const Directory& parent, std::string_view path) {
    const std::string_view name = path.substr(parent.path_size + (parent.path_size > 0 ? 1 : 0));
    const std::uint64_t hash = hash_text(path);
    const Directory* found =
        find_child(*_current.load(std::memory_order_acquire), parent, name, hash);
    return found != nullptr ? *found : add_child(parent, name, hash, path.size());
  }

 private:
  /// An open hash table. It is replaced by a larger one before it is three quarters full;
  /// the old ones stay, for the readers that still search them.
  struct Slots {
    explicit Slots(std::size_t count) : mask(count - 1), slots(count) {}
    std::size_t mask;
    std::vector<std::atomic<const Directory*>> slots;
  };

  const Directory* find(std::string_view path) const;
  static const Directory* find_child(const Slots& table, const Directory& parent,
                                     std::string_view name, std::uint64_t hash);
  const Directory& add(std::string_view path);
  const Directory& add_child(const Directory& parent, std::string_view name, std::uint64_t hash,
                             std::size_t path_size);
  const Directory* make(const Directory* parent, std::string_view name, std::uint64_t hash,
                        std::size_t path_size);

  std::atomic<const Slots*> _current;  // the last of _tables
  const Directory* _root;

  std::mutex _lock;  // of all below: held by `add`
  std::pmr::monotonic_buffer_resource _memory;
  std::vector<std::unique_ptr<Slots>> _tables;
  std::uint32_t _count = 0;
};

/// One `Value` for each directory, `Value{}` when none has been stored. `Value` is
/// trivially copyable and is read and written atomically; a later store wins.
template <typename Value>
class DirectoryMap {
 public:
  Value find(const Directory& directory) const {
    const auto [block, offset] = place(directory.number);
    const std::atomic<Value>* values = _blocks[block].load(std::memory_order_acquire);
    return values == nullptr ? Value{} : values[offset].load(std::memory_order_acquire);
  }

  void store(const Directory& directory, Value value) {
    const auto [block, offset] = place(directory.number);
    std::atomic<Value>* values = _blocks[block].load(std::memory_order_acquire);
    if (values == nullptr) values = add_block(block);
    values[offset].store(value, std::memory_order_release);
  }

 private:
  // Block n has FIRST_BLOCK << n values, so that blocks never move.
  static constexpr std::uint32_t FIRST_BLOCK = 64;
  static constexpr std::size_t BLOCKS = 27;

  struct Place {
    std::size_t block;
    std::size_t offset;
  };

  static Place place(std::uint32_t number) {
    const std::uint64_t shifted = std::uint64_t{number} + FIRST_BLOCK;
    const auto block = static_cast<std::size_t>(std::bit_width(shifted / FIRST_BLOCK) - 1);
    return {block, static_cast<std::size_t>(shifted - (std::uint64_t{FIRST_BLOCK} << block))};
  }

  std::atomic<Value>* add_block(std::size_t block) {
    const std::lock_guard hold(_lock);
    if (!_owned[block]) {
      _owned[block] = std::make_unique<std::atomic<Value>[]>(std::size_t{FIRST_BLOCK} << block);
      _blocks[block].store(_owned[block].get(), std::memory_order_release);
    }
    return _owned[block].get();
  }

  std::array<std::atomic<std::atomic<Value>*>, BLOCKS> _blocks{};
  std::mutex _lock;  // of _owned: held to add a block
  std::array<std::unique_ptr<std::atomic<Value>[]>, BLOCKS> _owned;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_DIRECTORY_TABLE_H_

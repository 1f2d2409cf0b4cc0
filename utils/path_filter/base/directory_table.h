// The directories that a scope has been asked about, and what it knows of each.
//
// A DirectoryTable gives every directory path a number, found with one hash lookup; a
// DirectoryMap holds one value for each number. A question about a file looks its
// directory up once and then reads the scope's caches by number.
//
// Readers take no lock and write nothing that another thread reads. Nothing is ever
// removed, so what was found stays valid as long as the table or map.

#ifndef UTILS_PATH_FILTER_BASE_DIRECTORY_TABLE_H_
#define UTILS_PATH_FILTER_BASE_DIRECTORY_TABLE_H_

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

#include "utils/path_filter/base/hash.h"

namespace path_filter::internal {

/// A directory of a repository. Paths are split at each "/" and kept as their last
/// component and a pointer to what is before it, so that a directory costs the length
/// of its name, however deep it lies.
struct Directory {
  const Directory* parent;  // null for the root, whose path is ""
  std::uint32_t hash;       // the low half of hash_text of the path
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
  /// however many directories are above: for a way down a deep tree, step by step.
  const Directory& child(const Directory& parent, std::string_view path) {
    const std::string_view name = path.substr(parent.path_size + (parent.path_size > 0 ? 1 : 0));
    const auto hash = static_cast<std::uint32_t>(hash_text(path));
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
                                     std::string_view name, std::uint32_t hash);
  const Directory& add(std::string_view path);
  const Directory& add_child(const Directory& parent, std::string_view name, std::uint32_t hash,
                             std::size_t path_size);
  const Directory* make(const Directory* parent, std::string_view name, std::uint32_t hash,
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
///
/// The values lie in blocks that never move, all of one size: the first store into a map costs
/// no more for a directory with a high number, and a large map is released in a hundredth
/// of the time of one in blocks that double.
template <typename Value>
class DirectoryMap {
 public:
  Value find(const Directory& directory) const {
    const Location at(directory.number);
    const BlockPointer* blocks = _segments[at.segment].load(std::memory_order_acquire);
    if (blocks == nullptr) return Value{};
    const Block* block = blocks[at.block].load(std::memory_order_acquire);
    return block == nullptr ? Value{} : (*block)[at.value].load(std::memory_order_acquire);
  }

  void store(const Directory& directory, Value value) {
    const Location at(directory.number);
    const BlockPointer* blocks = _segments[at.segment].load(std::memory_order_acquire);
    Block* block = blocks == nullptr ? nullptr : blocks[at.block].load(std::memory_order_acquire);
    if (block == nullptr) block = &add_block(at);
    (*block)[at.value].store(value, std::memory_order_release);
  }

  /// The value of `directory`. Those that are not known yet, of it and the directories above it,
  /// are made and stored from the top down: `make(directory, above)` is called with each directory
  /// and the value of the one that holds it, which for the root is `top`.
  template <typename Make>
  Value find_or_make(const Directory& directory, Value top, Make make) {
    std::vector<const Directory*> unknown;
    Value value = top;
    for (const Directory* at = &directory; at != nullptr; at = at->parent) {
      if (const Value known = find(*at); known != Value{}) {
        value = known;
        break;
      }
      unknown.push_back(at);
    }
    for (; !unknown.empty(); unknown.pop_back()) {
      value = make(*unknown.back(), value);
      store(*unknown.back(), value);
    }
    return value;
  }

 private:
  static constexpr std::uint32_t BLOCK_SIZE = 1024;
  using Block = std::array<std::atomic<Value>, BLOCK_SIZE>;
  using BlockPointer = std::atomic<Block*>;

  // Segment n has FIRST_SEGMENT << n blocks.
  static constexpr std::uint32_t FIRST_SEGMENT = 16;
  static constexpr std::size_t SEGMENTS = 19;

  struct Location {
    explicit Location(std::uint32_t number) : value(number % BLOCK_SIZE) {
      const std::uint32_t shifted = number / BLOCK_SIZE + FIRST_SEGMENT;
      segment = static_cast<std::uint32_t>(std::bit_width(shifted / FIRST_SEGMENT) - 1);
      block = shifted - (FIRST_SEGMENT << segment);
    }
    std::uint32_t segment;
    std::uint32_t block;
    std::uint32_t value;
  };

  Block& add_block(Location at) {
    const std::lock_guard hold(_lock);
    auto& segment = _owned_segments[at.segment];
    if (!segment) {
      segment = std::make_unique<BlockPointer[]>(std::size_t{FIRST_SEGMENT} << at.segment);
      _segments[at.segment].store(segment.get(), std::memory_order_release);
    }
    Block* block = segment[at.block].load(std::memory_order_relaxed);
    if (block == nullptr) {
      block = _owned_blocks.emplace_back(std::make_unique<Block>()).get();
      segment[at.block].store(block, std::memory_order_release);
    }
    return *block;
  }

  std::array<std::atomic<BlockPointer*>, SEGMENTS> _segments{};
  std::mutex _lock;  // of all below: held to add a block
  std::array<std::unique_ptr<BlockPointer[]>, SEGMENTS> _owned_segments;
  std::vector<std::unique_ptr<Block>> _owned_blocks;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_BASE_DIRECTORY_TABLE_H_

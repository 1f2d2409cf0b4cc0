#include "utils/path_filter/base/directory_table.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "utils/path_filter/base/words.h"

namespace path_filter::internal {
namespace {

/// Whether two texts of one size are equal. Names are short, and a lookup compares one for each
/// directory on the way: for those it is two loads a side instead of a call.
bool are_equal(std::string_view left, std::string_view right) {
  if (left.size() > 16) return left == right;
  return tail_of(left) == tail_of(right) &&
         (left.size() <= 8 || load<8>(left.data()) == load<8>(right.data()));
}

/// Whether `directory` has this path: its name is the end of it, and so on upwards.
bool has_path(const Directory& directory, std::string_view path) {
  if (directory.path_size != path.size()) return false;
  for (const Directory* at = &directory; at->parent != nullptr; at = at->parent) {
    const std::size_t begin = at->path_size - at->name_size;
    if (begin > 0 && path[begin - 1] != '/') return false;
    if (!are_equal({path.data() + begin, at->name_size}, at->name())) return false;
  }
  return true;
}

constexpr std::size_t FIRST_SLOTS = 256;

}  // namespace

DirectoryTable::DirectoryTable() {
  _tables.push_back(std::make_unique<Slots>(FIRST_SLOTS));
  _current.store(_tables.back().get(), std::memory_order_release);
  _root = make(nullptr, "", static_cast<std::uint32_t>(hash_text("")), 0);
}

const Directory* DirectoryTable::find(std::string_view path) const {
  if (path.empty()) return _root;
  const auto hash = static_cast<std::uint32_t>(hash_text(path));
  const Slots& table = *_current.load(std::memory_order_acquire);
  for (std::size_t slot = hash & table.mask;; slot = (slot + 1) & table.mask) {
    const Directory* directory = table.slots[slot].load(std::memory_order_acquire);
    if (directory == nullptr) return nullptr;
    if (directory->hash == hash && has_path(*directory, path)) return directory;
  }
}

const Directory* DirectoryTable::find_child(const Slots& table, const Directory& parent,
                                            std::string_view name, std::uint32_t hash) {
  for (std::size_t slot = hash & table.mask;; slot = (slot + 1) & table.mask) {
    const Directory* at = table.slots[slot].load(std::memory_order_acquire);
    if (at == nullptr) return nullptr;
    if (at->hash == hash && at->parent == &parent && at->name() == name) return at;
  }
}

/// Adds a directory to `parent`, unless another thread did so meanwhile.
const Directory& DirectoryTable::add_child(const Directory& parent, std::string_view name,
                                           std::uint32_t hash, std::size_t path_size) {
  const std::lock_guard hold(_lock);
  const Directory* found = find_child(*_tables.back(), parent, name, hash);
  return found != nullptr ? *found : *make(&parent, name, hash, path_size);
}

const Directory& DirectoryTable::add(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view above = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  if (const Directory* parent = find(above)) return child(*parent, path);

  // The hash of each directory on the way is that of the path so far, which a running
  // hash gives in one pass.
  XXH3_state_t running;
  XXH3_INITSTATE(&running);
  XXH3_64bits_reset_withSeed(&running, hash_seed());
  const Directory* parent = _root;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    XXH3_64bits_update(&running, path.data() + begin, end - begin);
    const auto hash = static_cast<std::uint32_t>(XXH3_64bits_digest(&running));
    parent = &add_child(*parent, path.substr(begin, end - begin), hash, end);
    if (end < path.size()) XXH3_64bits_update(&running, "/", 1);
    begin = end + 1;
  }
  return *parent;
}

/// Makes a directory that the table does not have, and publishes it.
const Directory* DirectoryTable::make(const Directory* parent, std::string_view name,
                                      std::uint32_t hash, std::size_t path_size) {
  if (_count == UINT32_MAX || path_size > UINT32_MAX) {
    throw std::length_error("too many directories in one scope, or too long a path");
  }
  const auto put = [](Slots& table, const Directory* entry) {
    std::size_t slot = entry->hash & table.mask;
    while (table.slots[slot].load(std::memory_order_relaxed) != nullptr) {
      slot = (slot + 1) & table.mask;
    }
    table.slots[slot].store(entry, std::memory_order_release);
  };
  if (const Slots& full = *_tables.back(); (std::size_t{_count} + 1) * 4 > full.slots.size() * 3) {
    auto larger = std::make_unique<Slots>(full.slots.size() * 2);
    for (const auto& slot : full.slots) {
      if (const Directory* entry = slot.load(std::memory_order_relaxed)) put(*larger, entry);
    }
    _tables.push_back(std::move(larger));
    _current.store(_tables.back().get(), std::memory_order_release);
  }

  void* memory = _memory.allocate(sizeof(Directory) + name.size(), alignof(Directory));
  const auto* made = new (memory) Directory{parent, hash, static_cast<std::uint32_t>(path_size),
                                            static_cast<std::uint32_t>(name.size()), _count};
  name.copy(reinterpret_cast<char*>(static_cast<Directory*>(memory) + 1), name.size());
  put(*_tables.back(), made);
  ++_count;
  return made;
}

}  // namespace path_filter::internal

#include "utils/path_filter/internal/directory_table.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "utils/path_filter/internal/hash.h"

namespace path_filter::internal {
namespace {

/// Whether `directory` has this path: its name is the end of it, and so on upwards.
bool has_path(const Directory& directory, std::string_view path) {
  const Directory* at = &directory;
  for (; at->parent != nullptr; at = at->parent) {
    if (at->path_size != path.size() || !path.ends_with(at->name)) return false;
    path.remove_suffix(at->name.size());
    if (at->parent->parent == nullptr) return path.empty();
    if (!path.ends_with('/')) return false;
    path.remove_suffix(1);
  }
  return path.empty();
}

constexpr std::size_t FIRST_SLOTS = 256;

}  // namespace

DirectoryTable::DirectoryTable() {
  _tables.push_back(std::make_unique<Slots>(FIRST_SLOTS));
  _current.store(_tables.back().get(), std::memory_order_release);
  void* memory = _memory.allocate(sizeof(Directory), alignof(Directory));
  _root = new (memory) Directory{nullptr, hash_text(""), 0, "", _count++};
  insert(_root);
}

const Directory* DirectoryTable::find(std::string_view path) const {
  if (path.empty()) return _root;
  const std::uint64_t hash = hash_text(path);
  const Slots& table = *_current.load(std::memory_order_acquire);
  for (std::size_t slot = hash & table.mask;; slot = (slot + 1) & table.mask) {
    const Directory* directory = table.slots[slot].load(std::memory_order_acquire);
    if (directory == nullptr) return nullptr;
    if (directory->hash == hash && has_path(*directory, path)) return directory;
  }
}

const Directory& DirectoryTable::add(std::string_view path) {
  const std::lock_guard hold(_lock);
  // The hash of each directory on the way is that of the path so far, which a running
  // hash gives in one pass.
  XXH3_state_t running;
  XXH3_INITSTATE(&running);
  XXH3_64bits_reset_withSeed(&running, hash_seed());
  const Directory* parent = _root;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string_view name = path.substr(begin, end - begin);
    XXH3_64bits_update(&running, path.data() + begin, name.size());
    const std::uint64_t hash = XXH3_64bits_digest(&running);

    const Slots& table = *_tables.back();
    const Directory* found = nullptr;
    for (std::size_t slot = hash & table.mask; found == nullptr; slot = (slot + 1) & table.mask) {
      const Directory* at = table.slots[slot].load(std::memory_order_relaxed);
      if (at == nullptr) break;
      if (at->hash == hash && at->parent == parent && at->name == name) found = at;
    }
    if (found == nullptr) {
      if (_count == UINT32_MAX) throw std::length_error("too many directories in one scope");
      auto* text = static_cast<char*>(_memory.allocate(std::max<std::size_t>(name.size(), 1), 1));
      name.copy(text, name.size());
      void* memory = _memory.allocate(sizeof(Directory), alignof(Directory));
      found = new (memory) Directory{parent, hash, end, {text, name.size()}, _count};
      insert(found);
      ++_count;
    }
    parent = found;
    if (end < path.size()) XXH3_64bits_update(&running, "/", 1);
    begin = end + 1;
  }
  return *parent;
}

void DirectoryTable::insert(const Directory* directory) {
  const auto put = [](Slots& table, const Directory* entry) {
    std::size_t slot = entry->hash & table.mask;
    while (table.slots[slot].load(std::memory_order_relaxed) != nullptr) {
      slot = (slot + 1) & table.mask;
    }
    table.slots[slot].store(entry, std::memory_order_release);
  };
  Slots* table = _tables.back().get();
  if ((std::size_t{_count} + 1) * 2 > table->mask + 1) {
    auto larger = std::make_unique<Slots>((table->mask + 1) * 2);
    for (const auto& slot : table->slots) {
      if (const Directory* entry = slot.load(std::memory_order_relaxed)) put(*larger, entry);
    }
    _tables.push_back(std::move(larger));
    table = _tables.back().get();
    put(*table, directory);
    _current.store(table, std::memory_order_release);
    return;
  }
  put(*table, directory);
}

}  // namespace path_filter::internal

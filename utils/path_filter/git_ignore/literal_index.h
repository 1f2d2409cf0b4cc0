// The rules of one ignore file, filed under a literal that what they match must contain in
// a certain place: a few hash lookups find the rules that can match.
//
// Of 10,000 rules in the mix of public ignore templates all but some dozens have such a
// literal; the benchmark `rule_set` gives what that buys. No literal is kept, only some bits
// of its hash: the caller matches the rules that are found.
//
// Filing takes two rounds, the first of which counts, so that nothing grows or is moved: the
// index never takes more memory than in the end.

#ifndef UTILS_PATH_FILTER_GIT_IGNORE_LITERAL_INDEX_H_
#define UTILS_PATH_FILTER_GIT_IGNORE_LITERAL_INDEX_H_

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "utils/path_filter/base/hash.h"

namespace path_filter::internal {

class LiteralIndex {
 public:
  /// Where the literal stands in what is matched.
  enum class Anchor : std::uint8_t { name, name_head, name_tail, path, path_head, path_tail };
  static constexpr std::size_t ANCHORS = 6;

  /// The longest head or tail that is filed; of a longer one the outer end is.
  static constexpr std::size_t LONGEST_PART = 31;

  using Rule = std::uint32_t;

  /// For this many rules.
  explicit LiteralIndex(std::size_t rules)
      : _pairs(std::clamp<std::size_t>(std::bit_ceil(rules / 4), 32, 1024)),
        _rules_end(static_cast<Rule>(std::bit_ceil(rules + 1))),
        _buckets(rules / 8 + 2),
        _sizes(_pairs) {}

  /// The first round: says that `file` will be called with this literal.
  void count(Anchor anchor, std::string_view key) {
    ++_buckets[bucket(anchored_hash(anchor, key))];
  }

  /// Ends the first round.
  void allot() {
    std::uint32_t filed = 0;
    for (std::uint32_t& end : _buckets) end = filed += end;
    _filed.resize(filed);
  }

  /// The second round: files a rule under a literal that is not empty. Rules come in rising
  /// order.
  void file(Anchor anchor, std::string_view key, Rule rule) {
    const std::uint64_t hash = anchored_hash(anchor, key);
    _filed[--_buckets[bucket(hash)]] = tag(hash) | rule;
    add_size(anchor, key);
  }

  /// The three anchors in a text of one kind.
  struct Anchors {
    Anchor whole;
    Anchor head;
    Anchor tail;
  };
  static constexpr Anchors IN_NAME{Anchor::name, Anchor::name_head, Anchor::name_tail};
  static constexpr Anchors IN_PATH{Anchor::path, Anchor::path_head, Anchor::path_tail};

  /// Calls `ask` with the rules that are filed under the whole `text`, a head or a tail of it,
  /// and perhaps with others; of each literal from the last back, as long as it returns true.
  /// Only the sizes that occur together with the text's outermost bytes are tried, and of
  /// heads and tails only those whose innermost byte fits: for the suffixes of a template
  /// that is one or two. Most texts are hashed not once.
  template <typename Ask>
  [[gnu::always_inline]] void find(Anchors anchors, std::string_view text, Ask ask) const {
    if (text.empty()) return;
    const Sizes& front = _sizes[pair(text, End::front) & (_pairs - 1)];
    const Sizes& back = _sizes[pair(text, End::back) & (_pairs - 1)];
    const SizeBits longest = size_bit(text.size());
    if ((of(back, anchors.whole) & longest) != 0) find_key(anchors.whole, text, ask);
    const SizeBits fitting = longest | (longest - 1);
    for (SizeBits left = of(front, anchors.head) & fitting; left != 0; left &= left - 1) {
      const std::string_view head = text.substr(0, size_of(left));
      if (has_inner_byte(anchors.head, head.back())) find_key(anchors.head, head, ask);
    }
    for (SizeBits left = of(back, anchors.tail) & fitting; left != 0; left &= left - 1) {
      const std::string_view tail = text.substr(text.size() - size_of(left));
      if (has_inner_byte(anchors.tail, tail.front())) find_key(anchors.tail, tail, ask);
    }
  }

 private:
  /// The end of a literal that lies at the end of what is matched; a whole text may take
  /// either.
  enum class End : std::uint8_t { front, back };

  /// Of literals at one anchor their sizes: bit n for n bytes.
  using SizeBits = std::uint32_t;
  /// Of each anchor.
  using Sizes = std::array<SizeBits, ANCHORS>;

  static SizeBits& of(Sizes& sizes, Anchor anchor) {
    return sizes[static_cast<std::size_t>(anchor)];
  }
  static SizeBits of(const Sizes& sizes, Anchor anchor) {
    return sizes[static_cast<std::size_t>(anchor)];
  }
  static std::size_t size_of(SizeBits sizes) {
    return static_cast<std::size_t>(std::countr_zero(sizes));
  }

  bool has_inner_byte(Anchor anchor, char byte) const {
    return _inner_bytes[static_cast<std::size_t>(anchor)].test(static_cast<unsigned char>(byte));
  }

  void add_size(Anchor anchor, std::string_view key) {
    const End outer = outer_end(anchor);
    const std::size_t own = pair(key, outer) & (_pairs - 1);
    // A literal of one byte goes with any neighbour.
    const std::size_t step = key.size() == 1 ? 32 : _pairs;
    for (std::size_t at = own % step; at < _pairs; at += step) {
      of(_sizes[at], anchor) |= size_bit(key.size());
    }
    const char inner = outer == End::back ? key.front() : key.back();
    _inner_bytes[static_cast<std::size_t>(anchor)].set(static_cast<unsigned char>(inner));
  }

  /// The low bits of the outermost byte, and above them those of its neighbour.
  static std::size_t pair(std::string_view text, End outer) {
    const bool back = outer == End::back;
    const auto byte = [&](std::size_t from_end) {
      return static_cast<std::size_t>(text[back ? text.size() - 1 - from_end : from_end]) & 31;
    };
    return byte(0) | (text.size() > 1 ? byte(1) << 5 : 0);
  }

  static SizeBits size_bit(std::size_t size) {
    return SizeBits{1} << std::min<std::size_t>(size, LONGEST_PART);
  }

  static End outer_end(Anchor anchor) {
    return anchor == Anchor::name_head || anchor == Anchor::path_head ? End::front : End::back;
  }

  static std::uint64_t anchored_hash(Anchor anchor, std::string_view key) {
    return hash_text(key) + static_cast<std::uint64_t>(anchor) * 0x9E3779B97F4A7C15U;
  }

  /// The bits of a hash that leave room for the number of a rule.
  std::uint32_t tag(std::uint64_t hash) const {
    return static_cast<std::uint32_t>(hash) & ~(_rules_end - 1);
  }

  /// Of the buckets but the last, which ends the one before it.
  std::size_t bucket(std::uint64_t hash) const {
    return (hash >> 32) * (_buckets.size() - 1) >> 32;
  }

  /// Kept apart from `find`, which seldom comes to it.
  template <typename Ask>
  [[gnu::noinline]] void find_key(Anchor anchor, std::string_view key, Ask ask) const {
    const std::uint64_t hash = anchored_hash(anchor, key);
    const std::uint32_t tagged = tag(hash);
    const std::size_t at = bucket(hash);
    for (std::size_t filed = _buckets[at]; filed < _buckets[at + 1]; ++filed) {
      const std::uint32_t rule = _filed[filed] ^ tagged;  // when the tag is the same
      if (rule < _rules_end && !ask(rule)) return;
    }
  }

  std::size_t _pairs;  // how many pairs of bytes a filter tells apart: a power of two
  Rule _rules_end;     // over all rules: a power of two
  std::vector<std::uint32_t> _buckets;  // where each begins in _filed
  std::vector<std::uint32_t> _filed;    // tags and rules; in a bucket the last comes first
  std::vector<Sizes> _sizes;            // by the pair of outermost bytes
  std::array<std::bitset<256>, ANCHORS> _inner_bytes;
};

}  // namespace path_filter::internal

#endif  // UTILS_PATH_FILTER_GIT_IGNORE_LITERAL_INDEX_H_

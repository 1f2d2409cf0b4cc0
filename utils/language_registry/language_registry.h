// The language registry: which language a file name belongs to, what tier that
// language is of, which files are dependency locks, and each language's test
// conventions.
//
// This header is a seam. It declares what path_filter asks of a registry and
// nothing about where the answers come from; the registry that is linked answers.
// The library path_filter::language_registry is the default one, with a table
// compiled in. A host that has its own registry links its own definitions of the
// functions below instead, in an object file of the program or an OBJECT library (a
// linker may drop any other): the calls are direct in both cases, so the choice costs
// the default nothing. A host whose registry only exists at run time links
// definitions that forward to it.
//
// Requirements on every implementation
//   Threads   All functions may be called from several threads at once.
//   Lifetime  Every string_view, pointer and reference that is returned stays valid
//             and unchanged until the process ends. A registry whose content
//             changes returns new objects and keeps the old ones.
//   Failure   An exception passes through path_filter to its caller unchanged.
//   Order     The functions may be called during static initialisation, from any
//             translation unit.

#ifndef UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_
#define UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>

#include "utils/path_filter/base/export.h"

namespace language_registry {

/// An immutable set of texts that is asked on hot paths. Nearly all texts that are not
/// members are told by their length, their first two characters and their last, without a hash.
class TextSet {
 public:
  TextSet(std::initializer_list<std::string_view> members)
      : TextSet(members.begin(), members.end()) {}

  template <typename Iterator>
  TextSet(Iterator begin, Iterator end) {
    for (; begin != end; ++begin) {
      const std::string_view member = *begin;
      _members.emplace(member);
      _sizes[letter(member, 0)] |= bit(size_class(member));
      _seconds[letter(member, 0)] |= bit(letter(member, 1));
      _lasts[letter(member, 0)] |= bit(letter(member, member.size() - 1));
    }
  }

  /// The set of what `asked` says is a member, for a registry that lists none.
  explicit TextSet(bool (*asked)(std::string_view text)) : _asked(asked) {
    for (auto* bits : {&_sizes, &_seconds, &_lasts}) bits->fill(~std::uint32_t{0});
  }

  bool contains(std::string_view text) const {
    return may_contain_in_some_case(text) &&
           (_asked != nullptr ? _asked(text) : _members.contains(text));
  }

  /// False when neither `text`, which is ASCII, nor `text` in another case is a member.
  bool may_contain_in_some_case(std::string_view text) const {
    const std::size_t first = letter(text, 0);
    return (_sizes[first] & bit(size_class(text))) != 0 &&
           (_seconds[first] & bit(letter(text, 1))) != 0 &&
           (_lasts[first] & bit(letter(text, text.size() - 1))) != 0;
  }

  std::size_t size() const { return _members.size(); }
  auto begin() const { return _members.begin(); }
  auto end() const { return _members.end(); }
  bool operator==(const TextSet& other) const { return _members == other._members; }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>{}(text);
    }
  };

  /// The low bits of a character, which are the same in both cases of a letter.
  static std::size_t letter(std::string_view text, std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) & 31U : 0;
  }
  static std::size_t size_class(std::string_view text) {
    return text.size() < 31 ? text.size() : 31;
  }
  static std::uint32_t bit(std::size_t number) { return std::uint32_t{1} << number; }

  bool (*_asked)(std::string_view text) = nullptr;
  std::unordered_set<std::string, Hash, std::equal_to<>> _members;
  // By the first character: which sizes members have, and which second and last characters.
  std::array<std::uint32_t, 32> _sizes{};
  std::array<std::uint32_t, 32> _seconds{};
  std::array<std::uint32_t, 32> _lasts{};
};

/// What the registry knows of the language of a file.
struct LanguageRecord {
  /// The language's tier. Two names have a meaning to path_filter: "code", the
  /// tier of programming languages, and "docs", that of documentation. Every
  /// other name is neither.
  std::string_view tier;
  /// Shell-style globs that the names of this language's test files match, in the
  /// order in which they are tried.
  std::span<const std::string_view> test_file_globs;
};

/// The registry object. It has no state of its own: its operations are defined by
/// the implementation that is linked.
struct PATH_FILTER_EXPORT Languages {
  /// The directory names, in lower case, that hold test code under the convention
  /// of some language.
  const TextSet& test_dir_names() const;

  /// The test file-name globs of all languages, in the registry's order.
  std::span<const std::string_view> test_file_globs() const;

  /// The record of the language that a file of this name is written in, or null
  /// when the name belongs to no language. `name` is a file name, not a path.
  const LanguageRecord* classify(std::string_view name) const;
};

/// The one registry object of the process; usable at any time, static
/// initialisation included.
inline constexpr Languages LANGUAGES{};

/// The name of the language that a file of this name is written in, for example
/// "typescript", or absent when the index reads no such language. `name` is a file
/// name, not a path.
PATH_FILTER_EXPORT std::optional<std::string_view> detect_language(std::string_view name);

/// Whether a file of this name is a dependency lock. `name` is a file name, not a
/// path.
PATH_FILTER_EXPORT bool is_lockfile(std::string_view name);

/// The tier of a language that `detect_language` named. What a name that the
/// registry does not know gives is the implementation's to say.
PATH_FILTER_EXPORT std::string_view tier_of(std::string_view language);

}  // namespace language_registry

#endif  // UTILS_LANGUAGE_REGISTRY_LANGUAGE_REGISTRY_H_

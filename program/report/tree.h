// What a page shows of a tree: its directories, and boxes for what they hold, few enough for
// a browser.

#ifndef PROGRAM_REPORT_TREE_H_
#define PROGRAM_REPORT_TREE_H_

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "program/output.h"
#include "program/survey.h"

namespace program::report {

/// 0: in, production code; 1: in, test code; from 2 on the kinds of what is left out.
using Verdict = std::uint8_t;
inline constexpr std::size_t VERDICT_COUNT = 2 + path_filter::ALL_EXCLUSIONS.size();

/// What is counted as one thing.
enum class Form : std::uint8_t { file, pruned_directory };

/// A tree as it is found: the contents of a directory are added one after the other, and those
/// of its subdirectories after them. No operation takes more stack for a deeper tree.
class Tree {
 public:
  /// The paths that are added begin with `below`, which is relative to the root ("": the root
  /// itself).
  explicit Tree(std::string_view below);

  /// `decider` is what decided, as text; `language` may be empty.
  void add(std::string_view path, Form form, Verdict verdict, std::string_view language,
           std::string_view decider, const Count& count);

  /// Puts the smallest things of each directory together, and the smallest directories into
  /// the one above, so that some 100,000 boxes are left at most. All is counted still.
  void fit();

  /// The tables and the boxes as the page reads them, flat however deep the tree is; names are
  /// as column() shows them.
  Json json() const;

 private:
  /// What many boxes have in common.
  struct Fact {
    Verdict verdict;
    std::uint32_t language;
    Form form;
    std::uint32_t decider;
    bool is_several;  // things of this form in one box
    auto operator<=>(const Fact&) const = default;
  };
  struct Box {
    std::string name;  // "" for several
    std::uint32_t fact;
    Count count;
  };
  /// Every directory comes before those in it.
  struct Directory {
    std::uint32_t parent;
    std::string name;
    std::vector<Box> boxes;
  };
  /// A directory on the way to the one that is being filled.
  struct Open {
    std::uint32_t index;
    std::size_t path_size;
  };
  /// One of the largest things left out.
  struct Large {
    std::uint32_t directory;
    std::string name;  // with what of its directory's path fit() took away
    std::uint32_t fact;
    Count count;
  };
  /// Texts by number, each once.
  class Texts {
   public:
    std::uint32_t number(std::string_view text);
    const std::vector<std::string>& all() const { return _texts; }

   private:
    std::map<std::string, std::uint32_t, std::less<>> _numbers;
    std::vector<std::string> _texts;
  };

  std::uint32_t directory_at(std::string_view path);
  std::uint32_t number(const Fact& fact);
  std::size_t group(const Box& box) const;
  void note_large(std::uint32_t directory, const Box& box);
  std::vector<std::uint32_t> homes() const;
  void merge(const std::vector<std::uint32_t>& homes);
  void drop_all_but(const std::vector<std::uint32_t>& homes);

  std::size_t _skipped;  // of each path
  std::vector<Directory> _directories{{0, "", {}}};
  std::string _path;  // of the last open directory
  std::vector<Open> _open{{0, 0}};
  Texts _languages;
  Texts _deciders;
  std::vector<Fact> _facts;
  std::map<Fact, std::uint32_t> _fact_numbers;
  std::vector<Count> _verdict_counts = std::vector<Count>(VERDICT_COUNT);
  std::vector<Count> _language_counts;
  std::vector<Large> _largest;  // a heap with the smallest in front
  std::size_t _boxes = 0;
  std::size_t _merged_boxes = 0;
  std::size_t _merged_directories = 0;
};

}  // namespace program::report

#endif  // PROGRAM_REPORT_TREE_H_

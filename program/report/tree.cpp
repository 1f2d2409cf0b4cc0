#include "program/report/tree.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <optional>
#include <utility>

namespace program::report {

namespace {

/// What a browser lays out and searches at once without being felt.
constexpr std::size_t MOST_BOXES = 100'000;
/// A directory without boxes of its own costs the page its name only.
constexpr std::size_t MOST_DIRECTORIES = 200'000;
constexpr std::size_t MOST_LARGEST = 20;

bool is_in(Verdict verdict) { return verdict < 2; }

Json json_of(std::string_view name, const Count& count) {
  return {{"name", name}, {"files", count.files}, {"bytes", count.bytes}};
}

}  // namespace

std::uint32_t Tree::Texts::number(std::string_view text) {
  auto found = _numbers.find(text);
  if (found == _numbers.end()) {
    found = _numbers.emplace(text, static_cast<std::uint32_t>(_texts.size())).first;
    _texts.emplace_back(text);
  }
  return found->second;
}

Tree::Tree(std::string_view below) : _skipped(below.empty() ? 0 : below.size() + 1) {
  _languages.number("");
  _deciders.number("");
}

std::uint32_t Tree::number(const Fact& fact) {
  const auto [found, is_new] =
      _fact_numbers.try_emplace(fact, static_cast<std::uint32_t>(_facts.size()));
  if (is_new) _facts.push_back(fact);
  return found->second;
}

std::uint32_t Tree::directory_at(std::string_view path) {
  const auto common = static_cast<std::size_t>(
      std::ranges::mismatch(path, std::string_view(_path)).in1 - path.begin());
  const auto is_above = [&](const Open& open) {
    return open.path_size <= common &&
           (open.path_size == 0 || open.path_size == path.size() || path[open.path_size] == '/');
  };
  while (!is_above(_open.back())) _open.pop_back();
  for (std::size_t end = _open.back().path_size; end < path.size();) {
    const std::size_t begin = end == 0 ? 0 : end + 1;
    end = std::min(path.find('/', begin), path.size());
    _directories.push_back({_open.back().index, std::string(path.substr(begin, end - begin)), {}});
    _open.push_back({static_cast<std::uint32_t>(_directories.size() - 1), end});
  }
  _path.resize(std::min(common, path.size()));
  _path += path.substr(_path.size());
  return _open.back().index;
}

void Tree::add(std::string_view path, Form form, Verdict verdict, std::string_view language,
               std::string_view decider, const Count& count) {
  path.remove_prefix(_skipped);
  const std::size_t slash = path.rfind('/');
  const std::uint32_t directory =
      directory_at(slash == path.npos ? std::string_view() : path.substr(0, slash));
  const Fact fact{verdict, _languages.number(language), form, _deciders.number(decider), false};
  const Box& box = _directories[directory].boxes.emplace_back(
      Box{std::string(path.substr(slash + 1)), number(fact), count});  // npos + 1 is 0
  ++_boxes;
  _verdict_counts[verdict].add(count);
  if (!is_in(verdict)) return note_large(directory, box);
  _language_counts.resize(_languages.all().size());
  _language_counts[fact.language].add(count);
}

void Tree::note_large(std::uint32_t directory, const Box& box) {
  const auto is_larger = [](const Large& a, const Large& b) {
    return a.count.bytes > b.count.bytes;
  };
  if (_largest.size() == MOST_LARGEST) {
    if (box.count.bytes <= _largest.front().count.bytes) return;
    std::ranges::pop_heap(_largest, is_larger);
    _largest.pop_back();
  }
  _largest.push_back({directory, box.name, box.fact, box.count});
  std::ranges::push_heap(_largest, is_larger);
}

void Tree::fit() {
  if (_boxes <= MOST_BOXES && _directories.size() <= MOST_DIRECTORIES) return;
  const auto homes = this->homes();
  merge(homes);
  drop_all_but(homes);
}

/// Which of the things of a directory may become one box: those of one verdict and form.
std::size_t Tree::group(const Box& box) const {
  const Fact& fact = _facts[box.fact];
  return 2U * fact.verdict + static_cast<std::size_t>(fact.form);
}

/// For each directory the one that has its boxes in the end: itself, or the nearest one above
/// that stays.
std::vector<std::uint32_t> Tree::homes() const {
  const std::size_t size = _directories.size();
  std::vector<Count> counts(size);
  std::vector<unsigned> groups(size);  // a set of bits
  for (std::size_t index = size; index-- > 0;) {
    const Directory& directory = _directories[index];
    for (const Box& box : directory.boxes) {
      counts[index].add(box.count);
      groups[index] |= 1U << group(box);
    }
    if (index == 0) break;
    counts[directory.parent].add(counts[index]);
    groups[directory.parent] |= groups[index];
  }
  // The share of a directory is never larger than that of the one above, which comes before
  // it: what stays hangs together.
  std::vector<double> shares(size);
  std::ranges::transform(counts, shares.begin(), [&](const Count& count) {
    const auto share = [](std::size_t part, std::size_t all) {
      return static_cast<double>(part) / static_cast<double>(std::max<std::size_t>(all, 1));
    };
    return share(count.files, counts[0].files) + share(count.bytes, counts[0].bytes);
  });
  std::vector<std::uint32_t> order(size);
  std::iota(order.begin(), order.end(), 0U);
  std::ranges::stable_sort(order, std::greater<>(),
                           [&](std::uint32_t index) { return shares[index]; });
  // Half of the boxes may be those of several things, one for a group of a directory.
  std::vector<bool> stays(size);
  stays[0] = true;
  std::size_t boxes = 0;
  for (const std::uint32_t index : order) {
    boxes += static_cast<std::size_t>(std::popcount(groups[index]));
    if (boxes > MOST_BOXES / 2) break;
    stays[index] = true;
  }
  std::vector<std::uint32_t> homes(size);
  for (std::uint32_t index = 1; index < size; ++index) {
    homes[index] = stays[index] ? index : homes[_directories[index].parent];
  }
  return homes;
}

/// Leaves the largest boxes of the directories that stay, and puts the others together.
void Tree::merge(const std::vector<std::uint32_t>& homes) {
  std::vector<std::size_t> sizes;
  std::vector<unsigned> groups(homes.size());
  for (std::uint32_t index = 0; index < homes.size(); ++index) {
    for (const Box& box : _directories[index].boxes) {
      groups[homes[index]] |= 1U << group(box);
      if (homes[index] == index) sizes.push_back(box.count.bytes);
    }
  }
  std::size_t places = MOST_BOXES;
  for (const unsigned set : groups) places -= static_cast<std::size_t>(std::popcount(set));
  std::size_t limit = 0;  // larger boxes stay, and the first of just this size
  if (sizes.size() > places) {
    const auto last = sizes.begin() + static_cast<std::ptrdiff_t>(places);
    std::ranges::nth_element(sizes, last, std::greater<>());
    limit = *last;
    places -= static_cast<std::size_t>(
        std::count_if(sizes.begin(), last, [&](std::size_t bytes) { return bytes > limit; }));
  }

  std::map<std::pair<std::uint32_t, std::size_t>, Box> merged;
  std::size_t single = 0;
  for (std::uint32_t index = 0; index < homes.size(); ++index) {
    std::vector<Box> boxes = std::exchange(_directories[index].boxes, {});
    for (Box& box : boxes) {
      const bool at_home = homes[index] == index;
      if (at_home && (box.count.bytes > limit || (box.count.bytes == limit && places > 0))) {
        if (box.count.bytes == limit) --places;
        _directories[index].boxes.push_back(std::move(box));
        ++single;
        continue;
      }
      const auto [found, is_first] = merged.try_emplace({homes[index], group(box)}, box);
      Box& several = found->second;
      if (is_first && at_home) continue;
      Fact fact = _facts[box.fact];
      const Fact& other = _facts[several.fact];
      if (fact.language != other.language) fact.language = 0;
      if (fact.decider != other.decider) fact.decider = 0;
      fact.is_several = true;
      if (!is_first) several.count.add(box.count);
      several.name.clear();
      several.fact = number(fact);
    }
  }
  for (auto& [key, box] : merged) {
    single += _facts[box.fact].is_several ? 0 : 1;
    _directories[key.first].boxes.push_back(std::move(box));
  }
  _merged_boxes = _boxes - single;
}

void Tree::drop_all_but(const std::vector<std::uint32_t>& homes) {
  std::vector<std::uint32_t> numbers(homes.size());
  std::vector<Directory> kept;
  for (Large& large : _largest) {
    std::vector<std::string_view> names;
    for (std::uint32_t at = large.directory; homes[at] != at; at = _directories[at].parent) {
      names.push_back(_directories[at].name);
    }
    std::string path;
    for (; !names.empty(); names.pop_back()) (path += names.back()) += '/';
    large.name = path + large.name;
  }
  for (std::uint32_t index = 0; index < homes.size(); ++index) {
    if (homes[index] != index) continue;
    numbers[index] = static_cast<std::uint32_t>(kept.size());
    kept.push_back(std::move(_directories[index]));
    kept.back().parent = numbers[kept.back().parent];
  }
  for (Large& large : _largest) large.directory = numbers[homes[large.directory]];
  _merged_directories = _directories.size() - kept.size();
  _directories = std::move(kept);
}

Json Tree::json() const {
  Json verdicts = Json::array();
  for (std::size_t verdict = 0; verdict < VERDICT_COUNT; ++verdict) {
    const auto name = verdict == 0   ? "production"
                      : verdict == 1 ? "test"
                                     : to_string(path_filter::ALL_EXCLUSIONS[verdict - 2]);
    verdicts.push_back(json_of(name, _verdict_counts[verdict]));
  }
  Json languages = Json::array();
  for (std::size_t index = 0; index < _languages.all().size(); ++index) {
    const bool is_indexed = index < _language_counts.size();
    languages.push_back(
        json_of(_languages.all()[index], is_indexed ? _language_counts[index] : Count()));
  }
  Json facts = Json::array();
  for (const Fact& fact : _facts) {
    facts.push_back({fact.verdict, fact.language, fact.form == Form::pruned_directory, fact.decider,
                     fact.is_several});
  }
  Json largest = Json::array();
  for (const Large& large : _largest) {
    largest.push_back(
        {large.directory, column(large.name), large.fact, large.count.files, large.count.bytes});
  }
  Json directory_names = Json::array();
  Json parents = Json::array();
  Json box_counts = Json::array();
  Json names = Json::array();
  Json bytes = Json::array();
  Json box_facts = Json::array();
  Json files = Json::array();
  for (const Directory& directory : _directories) {
    directory_names.push_back(column(directory.name));
    parents.push_back(directory.parent);
    box_counts.push_back(directory.boxes.size());
    for (const Box& box : directory.boxes) {
      if (box.count.files != 1) files.push_back({names.size(), box.count.files});
      names.push_back(column(box.name));
      bytes.push_back(box.count.bytes);
      box_facts.push_back(box.fact);
    }
  }
  return {{"verdicts", std::move(verdicts)},
          {"languages", std::move(languages)},
          {"deciders", _deciders.all()},
          {"facts", std::move(facts)},
          {"largest", std::move(largest)},
          {"directories",
           {{"name", std::move(directory_names)},
            {"parent", std::move(parents)},
            {"boxes", std::move(box_counts)}}},
          {"boxes",
           {{"name", std::move(names)},
            {"bytes", std::move(bytes)},
            {"fact", std::move(box_facts)},
            {"files", std::move(files)}}},
          {"merged", {{"boxes", _merged_boxes}, {"directories", _merged_directories}}}};
}

}  // namespace program::report

// What a rule set costs by its number of rules.
//
//   Ask    One pass over the questions. 100 rules against 10,000: how little a rule that
//          does not match costs.
//   Deep   Hostile: a path of so many levels asked about level by level, as the first question
//          about a directory does, under 1,000 rules whose "**" can begin at each; against
//          (levels:1) its last level alone.
//   Build  from_lines: the rules per second stay the same when it is linear.
//
// The rules are made up, with the mix of the public collections of ignore templates, out of
// every 100:
//
//   whole names        24  "report12"     anchored paths    12  "/lib/report12"
//   names of a suffix  22  "*.rep12"      paths             10  "lib/core/report12"
//   directory names    16  "report12/"    names of a prefix  5  "report12*"
//   sets, "[Rr]eport12/"                                     4
//   two-sided wildcards, "report12-*.log"                    2
//   "**/report12", "report12/**", "*.rep12[cod]", "lib/*/report12" and "lib/**/report12"
//                                                            1 each
//
// Each has a text of its own and one in 20 is negated, so no two sets share work by accident.

#include <benchmark/benchmark.h>

#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/benchmark_tree.h"
#include "utils/path_filter/git_ignore/git_glob.h"
#include "utils/path_filter/git_ignore/git_ignore.h"

namespace {

using path_filter::GitIgnoreSpec;

constexpr std::array<std::string_view, 24> WORDS{
    "src",    "lib",   "core",   "net",     "driver", "parser", "report", "index",
    "output", "cache", "module", "service", "test",   "debug",  "vendor", "tool",
    "config", "docs",  "user",   "asset",   "kernel", "log",    "widget", "common"};

class TextMaker {
 public:
  std::string word() { return std::string(WORDS[below(WORDS.size())]); }
  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(_random);
  }

 private:
  std::mt19937 _random{1};  // NOLINT: the same rules each time
};

std::vector<std::string> make_rules(std::size_t count) {
  TextMaker make;
  std::vector<std::string> rules;
  rules.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    const std::string word = make.word();
    const std::string name = word + number;
    const std::string extension = word.substr(0, 3) + number;
    std::string capitals = "[x";
    capitals[1] = static_cast<char>(std::toupper(word[0]));
    capitals.append(1, word[0]).append("]").append(name, 1);

    // Every hundred rules in a row have the whole mix, so that a small set has it too.
    const std::size_t kind = (i * 37) % 100;
    std::string rule;
    if (kind < 24)
      rule = name;
    else if (kind < 46)
      rule = "*." + extension;
    else if (kind < 62)
      rule = name + "/";
    else if (kind < 74)
      rule = "/" + make.word() + "/" + name;
    else if (kind < 84)
      rule = make.word() + "/" + make.word() + "/" + name;
    else if (kind < 89)
      rule = name + "*";
    else if (kind < 93)
      rule = capitals + "/";
    else if (kind < 95)
      rule = name + "-*.log";
    else if (kind == 95)
      rule = "**/" + name;
    else if (kind == 96)
      rule = name + "/**";
    else if (kind == 97)
      rule = "*." + extension + "[cod]";
    else if (kind == 98)
      rule = make.word() + "/*/" + name;
    else
      rule = make.word() + "/**/" + name;
    rules.push_back((i % 20 == 7 ? "!" : "") + rule);
  }
  return rules;
}

GitIgnoreSpec make_rule_set(const std::vector<std::string>& rules) {
  const std::vector<std::string_view> lines(rules.begin(), rules.end());
  return GitIgnoreSpec::from_lines(lines);
}

/// Paths of the words that the rules are made of. With so many rules about so few words,
/// more of them match than in a real tree.
const std::vector<std::string>& generated_paths() {
  static const std::vector<std::string> paths = [] {
    TextMaker make;
    std::vector<std::string> made;
    for (int i = 0; i < 50'000; ++i) {
      std::string path;
      for (std::size_t depth = 1 + make.below(5); depth > 0; --depth) {
        path += make.word();
        if (make.below(4) == 0) path += std::to_string(make.below(10'000));
        path += '/';
      }
      path += make.word() + std::to_string(make.below(10'000)) + ".";
      path += make.word().substr(0, 3) + (make.below(4) == 0 ? std::to_string(i) : "");
      made.push_back(path);
    }
    return made;
  }();
  return paths;
}

void Ask(benchmark::State& state, bool generated) {
  const GitIgnoreSpec rules = make_rule_set(make_rules(static_cast<std::size_t>(state.range(0))));
  const std::vector<std::string>& paths =
      generated ? generated_paths() : benchmarks::paths_of_tree();
  std::int64_t matched = 0;
  for (auto _ : state) {
    matched = 0;
    for (const std::string& path : paths) {
      matched += rules.check_file(path).include.has_value() ? 1 : 0;
    }
    benchmark::DoNotOptimize(matched);
  }
  state.counters["matched"] = static_cast<double>(matched);
  state.SetItemsProcessed(static_cast<std::int64_t>(paths.size()) * state.iterations());
}
BENCHMARK_CAPTURE(Ask, tree, false)->Arg(100)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Ask, generated, true)->Arg(100)->Arg(10'000)->Unit(benchmark::kMillisecond);

void Deep(benchmark::State& state) {
  std::vector<std::string> rules;
  for (int i = 0; i < 1000; ++i) rules.push_back("**/a/**/b" + std::to_string(i) + "/**/c/**");
  const GitIgnoreSpec rule_set = make_rule_set(rules);
  std::string path = "a";
  while (path.size() < 4000) path += "/b/a";
  const auto levels = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    GitIgnoreSpec::Question::Progress progress;
    for (std::size_t size = path.size() - 2 * (levels - 1); size <= path.size(); size += 2) {
      const GitIgnoreSpec::Question question(std::string_view(path).substr(0, size),
                                             std::string_view(path).substr(size - 1, 1), true,
                                             &progress);
      benchmark::DoNotOptimize(rule_set.deciding_rule(question, 0));
    }
  }
}
BENCHMARK(Deep)->ArgName("levels")->Arg(1)->Arg(2000)->Unit(benchmark::kMillisecond);

void Build(benchmark::State& state) {
  const std::vector<std::string> rules = make_rules(static_cast<std::size_t>(state.range(0)));
  const std::vector<std::string_view> lines(rules.begin(), rules.end());
  for (auto _ : state) benchmark::DoNotOptimize(GitIgnoreSpec::from_lines(lines));
  state.SetItemsProcessed(static_cast<std::int64_t>(lines.size()) * state.iterations());
}
BENCHMARK(Build)->RangeMultiplier(10)->Range(100, 100'000)->Unit(benchmark::kMicrosecond);

}  // namespace

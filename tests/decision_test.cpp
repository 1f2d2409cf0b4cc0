#include "utils/path_filter/index_scope/decision.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "tests/support.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/index_scope/index_limits.h"

namespace path_filter {
namespace {

static_assert(!MadeFrom<Decision> && !MadeFrom<Decision, int> && !MadeFrom<Decision, const char*>);
static_assert(!MadeFrom<IndexLimits> && !MadeFrom<IndexLimits, int>);

TEST(Decision, Values) {
  const Decision in{true}, out{false, Exclusion::size, "big", "python"};
  EXPECT_TRUE(in && in.indexable() && !out);
  EXPECT_NE(out, (Decision{false, Exclusion::size, "big"}));
  const Decision fixed = Decision::excluded(Exclusion::lockfile, "json");
  Decision changed = in;
  changed = Decision{false, Exclusion::lockfile, "a dependency lock", "json"};
  EXPECT_EQ(changed, fixed);
  EXPECT_EQ(std::hash<Decision>{}(changed), std::hash<Decision>{}(fixed));
  EXPECT_THROW(internal::reason_of(Exclusion::size), std::out_of_range);
}

TEST(Decision, RelativePosix) {
  std::string storage;
  for (const char* path : {"a/b.ts", "C:", "C:a.py", "", "./a//b/", "ab:/x", "é", "éa:/x", "é/:/"})
    EXPECT_EQ(_relative_posix(path, storage), path);
  EXPECT_EQ(_relative_posix("src\\app\\main.ts", storage), "src/app/main.ts");
  for (const char* path : {"/etc/hosts", "\\\\host\\share", "C:/a.py", "C:\\a.py", "1:/x", "::/x",
                           "é:/x", "😀:\\x", "\xFF:/x"})
    try {
      _relative_posix(path, storage);
      ADD_FAILURE() << path;
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(error.what(), internal::quoted(path) + " is not relative to the repository root");
    }
}

using Int = std::int64_t;
ConfigValue text(const char* value) { return {std::string(value)}; }

TEST(IndexLimits, Sizes) {
  const auto limit = [](const ConfigValue& size) -> Int {
    return IndexLimits::from_config({size, {{}}}).max_file_bytes();
  };
  const CapturedLog log;
  EXPECT_TRUE(limit({Int{10}}) == 10485760 && limit({0.5}) == 524288 && limit({Int{1}}) == 1048576);
  EXPECT_TRUE(limit(text(" \t+1.5e0\n")) == 1572864 && limit({1.0000001}) == 1048576);
  EXPECT_TRUE(limit({1 / 1048576.0}) == 1 && limit({1e300}) == INT64_MAX);
  std::string warnings;
  using Row = std::pair<ConfigValue, std::string>;
  for (const auto& [size, literal] :
       {Row{{}, "None"}, Row{{Int{-1}}, "-1"}, Row{{-1.0}, "-1.0"}, Row{{1e-7}, "1e-07"},
        Row{{-1e5}, "-100000.0"}, Row{{-0.0001}, "-0.0001"}, Row{{-1e15}, "-1000000000000000.0"},
        Row{{-1e16}, "-1e+16"}, Row{{INFINITY}, "inf"}, Row{{NAN}, "nan"}, Row{{1e308}, "1e+308"},
        Row{text("ten"), "'ten'"}, Row{text("1e999"), "'1e999'"}, Row{text("+-1"), "'+-1'"},
        Row{text("2x"), "'2x'"}, Row{{ConfigValue::Other{"[1]"}}, "[1]"}}) {
    EXPECT_EQ(limit(size), 10485760) << literal;
    warnings += "index.max_file_size_mb=" + literal + " is not a positive number; using 10\n";
  }
  EXPECT_EQ(log.text(), warnings);
  const Warning::Argument whole[] = {"all"};  // its format goes on, and ends like a place for one
  EXPECT_EQ((Warning{"%s of 100 %", whole}).message(), "all of 100 %");
}

TEST(IndexLimits, Languages) {
  const auto languages = [](std::optional<std::vector<std::string>> names) {
    return IndexLimits::from_config({text("1"), std::move(names)}).languages();
  };
  const auto both = languages({{"typescript", "typescript"}});
  EXPECT_EQ(both, (LanguageSet{"tsx", "typescript"}));
  EXPECT_EQ(languages({{"TypeScript", "3"}}), (LanguageSet{"3", "TypeScript"}));
  EXPECT_FALSE(languages({{}}));
  EXPECT_THROW(languages(std::nullopt), std::invalid_argument);
  EXPECT_THROW(IndexLimits::from_config({std::nullopt, {{}}}), std::invalid_argument);

  const IndexLimits some{1, both}, none{1, LanguageSet{}}, all{1, std::nullopt};
  EXPECT_TRUE(some.allows("tsx") && !some.allows("python") && !some.allows("markdown"));
  EXPECT_TRUE(none.allows("json") && !none.allows("markdown") && all.allows("python"));
  EXPECT_TRUE(some == (IndexLimits{1, LanguageSet{"typescript", "tsx"}}) && !(all == none));
}

}  // namespace
}  // namespace path_filter

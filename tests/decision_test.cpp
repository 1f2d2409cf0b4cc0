// Decisions, limits and relative paths: the values that a scope takes and gives.

#include "utils/path_filter/decision.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

#include "tests/support.h"
#include "utils/path_filter/index_limits.h"

namespace path_filter {
namespace {

static_assert(!std::is_copy_assignable_v<Decision>);
static_assert(!std::is_assignable_v<decltype((std::declval<Decision&>().reason)), std::string>);
static_assert(!std::is_copy_assignable_v<IndexLimits>);

TEST(Decision, Values) {
  EXPECT_TRUE(Decision{true});
  EXPECT_FALSE((Decision{false, Exclusion::size, "big", "python"}));
  EXPECT_EQ(Decision{true}, (Decision{.indexable = true, .kind = {}, .reason = ""}));
  EXPECT_NE(Decision{true}, (Decision{.indexable = true, .language = "python"}));
  EXPECT_EQ(std::hash<Decision>{}(Decision{true}), std::hash<Decision>{}(Decision{true}));
  EXPECT_EQ(internal::reason_of(Exclusion::index_data),
            "in the index's own data directory (memory/codebase-index)");
  EXPECT_THROW(internal::reason_of(Exclusion::size), std::out_of_range);
  EXPECT_EQ(to_string(Exclusion::unknown_language), "unknown_language");
}

TEST(Decision, RelativePosix) {
  std::string storage;
  for (const std::string_view path : {"src/app/main.ts", "C:", "C:a.py", "", "./a//b/", "ab:/x"}) {
    EXPECT_EQ(_relative_posix(path, storage), path);
  }
  EXPECT_EQ(_relative_posix("src\\app\\main.ts", storage), "src/app/main.ts");
  for (const std::string_view path :
       {"/etc/hosts", "\\\\host\\share", "C:/repo/a.py", "C:\\repo\\a.py", "1:/x"}) {
    EXPECT_THROW(_relative_posix(path, storage), std::invalid_argument) << path;
  }
  try {
    _relative_posix("C:\\a.py", storage);
    FAIL();
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "'C:\\\\a.py' is not relative to the repository root");
  }
}

ConfigValue list(std::initializer_list<const char*> names) {
  ConfigValue::List entries;
  for (const char* name : names) entries.push_back({std::string(name)});
  return {entries};
}

TEST(IndexLimits, Sizes) {
  struct Row {
    ConfigValue size;
    std::int64_t bytes;
    std::string literal;  // in the warning; "" when there is none
  };
  constexpr std::int64_t DEFAULT = 10485760;
  constexpr double INF = std::numeric_limits<double>::infinity();
  const auto text = [](const char* value) { return ConfigValue{std::string(value)}; };
  const Row rows[] = {
      {{std::int64_t{10}}, DEFAULT, ""},
      {{0.5}, 524288, ""},
      {text("2"), 2097152, ""},
      {text(" \t+1.5e0\n"), 1572864, ""},
      {{1.0000001}, 1048576, ""},
      {{true}, 1048576, ""},
      {{1e300}, std::numeric_limits<std::int64_t>::max(), ""},
      {{false}, DEFAULT, "False"},
      {{std::int64_t{0}}, DEFAULT, "0"},
      {{std::int64_t{-1}}, DEFAULT, "-1"},
      {{-1.0}, DEFAULT, "-1.0"},
      {{}, DEFAULT, "None"},
      {text("ten"), DEFAULT, "'ten'"},
      {text("1e999"), DEFAULT, "'1e999'"},
      {text("0x10"), DEFAULT, "'0x10'"},
      {text("it's"), DEFAULT, "'it\\'s'"},
      {{INF}, DEFAULT, "inf"},
      {{std::numeric_limits<double>::quiet_NaN()}, DEFAULT, "nan"},
      {{std::numeric_limits<double>::max()}, DEFAULT, "1.7976931348623157e+308"},
      {{0.0000001}, DEFAULT, "1e-07"},
      {list({"a"}), DEFAULT, "['a']"},
  };
  for (const Row& row : rows) {
    const CapturedLog log;
    EXPECT_EQ(IndexLimits::from_config({row.size, ConfigValue{}}).max_file_bytes, row.bytes)
        << row.literal;
    EXPECT_EQ(log.text(), row.literal.empty()
                              ? ""
                              : "utils.path_filter warning index.max_file_size_mb=" + row.literal +
                                    " is not a positive number; using 10\n");
  }
}

TEST(IndexLimits, Languages) {
  const ConfigValue ten{std::int64_t{10}};
  const auto languages = [&](ConfigValue value) {
    return IndexLimits::from_config({ten, std::move(value)}).languages;
  };
  EXPECT_EQ(languages(list({"typescript", "typescript"})), (LanguageSet{"tsx", "typescript"}));
  EXPECT_EQ(languages(list({"tsx"})), LanguageSet{"tsx"});
  EXPECT_EQ(languages(list({"TypeScript"})), LanguageSet{"TypeScript"});
  EXPECT_EQ(languages({ConfigValue::List{{std::int64_t{3}}}}), LanguageSet{"3"});
  EXPECT_EQ(languages(list({})), std::nullopt);
  EXPECT_EQ(languages({}), std::nullopt);
  EXPECT_THROW(languages({std::string("python")}), std::invalid_argument);
  EXPECT_THROW(languages({ConfigValue::List{list({"a"})}}), std::invalid_argument);
  EXPECT_THROW(IndexLimits::from_config({std::nullopt, ConfigValue{}}), std::invalid_argument);
  EXPECT_THROW(IndexLimits::from_config({ten, std::nullopt}), std::invalid_argument);
}

TEST(IndexLimits, Allows) {
  const IndexLimits typescript{1, LanguageSet{"tsx", "typescript"}};
  const IndexLimits nothing{1, LanguageSet{}};
  const IndexLimits all{1, std::nullopt};
  struct Row {
    const char* language;
    bool in_typescript, in_nothing;
  };
  for (const Row& row :
       {Row{"typescript", true, false}, Row{"tsx", true, false}, Row{"python", false, false},
        Row{"markdown", false, false}, Row{"json", true, true}}) {
    EXPECT_EQ(typescript.allows(row.language), row.in_typescript) << row.language;
    EXPECT_EQ(nothing.allows(row.language), row.in_nothing) << row.language;
    EXPECT_TRUE(all.allows(row.language));
  }
  test_registry::failing = true;
  EXPECT_TRUE(all.allows("no such language"));
  EXPECT_THROW(typescript.allows("python"), std::runtime_error);
  test_registry::failing = false;
  EXPECT_EQ(std::hash<IndexLimits>{}(typescript),
            std::hash<IndexLimits>{}(IndexLimits{1, LanguageSet{"typescript", "tsx"}}));
}

}  // namespace
}  // namespace path_filter

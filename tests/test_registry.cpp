#include <array>
#include <new>
#include <stdexcept>

#include "tests/support.h"
#include "utils/language_registry/language_registry.h"

namespace language_registry {
namespace {

constexpr std::array<std::string_view, 3> GLOBS{"test_*.py", "*_test.py", "*Test.java"};
constexpr std::span ALL_GLOBS(GLOBS);
constexpr LanguageRecord PYTHON{"code", ALL_GLOBS.first(2)}, JAVA{"code", ALL_GLOBS.last(1)};
constexpr LanguageRecord CODE{"code", {}}, DOCS{"docs", {}}, DATA{"data", {}};

struct Row {
  std::string_view name, suffix;
  const LanguageRecord& record;
};

constexpr Row ROWS[] = {
    {"python", ".py", PYTHON},    {"java", ".java", JAVA},      {"csharp", ".cs", CODE},
    {"typescript", ".ts", CODE},  {"tsx", ".tsx", CODE},        {"javascript", ".js", CODE},
    {"javascript", ".mjs", CODE}, {"javascript", ".cjs", CODE}, {"markdown", ".md", DOCS},
    {"json", ".json", DATA},      {"text", ".log", DOCS}};

void fail_on_demand() {
  if (test_registry::failing) throw std::runtime_error("registry failure");
}

const Row* find_row(std::string_view name) {
  fail_on_demand();
  for (const Row& row : ROWS)
    if (name.ends_with(row.suffix)) return &row;
  return nullptr;
}

}  // namespace

const TextSet& Languages::test_dir_names() const {
  fail_on_demand();
  ++test_registry::test_dir_names_calls;
  static const TextSet names{"tests", "test", "specs", "__tests__", "__mocks__", "\xC3\xA9tests"};
  return names;
}

std::span<const std::string_view> Languages::test_file_globs() const {
  fail_on_demand();
  ++test_registry::test_file_globs_calls;
  return ALL_GLOBS;
}

const LanguageRecord* Languages::classify(std::string_view name) const {
  ++test_registry::classifications;
  if (name == "explode.py") throw std::runtime_error("registry exploded");
  if (name == "memory.py") throw std::bad_alloc();
  const Row* row = find_row(name);
  return row == nullptr ? nullptr : &row->record;
}

std::optional<std::string_view> detect_language(std::string_view name) {
  if (const Row* row = find_row(name)) return row->name;
  return std::nullopt;
}

bool is_lockfile(std::string_view name) {
  fail_on_demand();
  return name == "package-lock.json" || name == "Cargo.lock";
}

std::string_view tier_of(std::string_view language) {
  fail_on_demand();
  for (const Row& row : ROWS)
    if (row.name == language) return row.record.tier;
  return "";
}

}  // namespace language_registry

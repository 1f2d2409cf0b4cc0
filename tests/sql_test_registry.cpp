#include "tests/sql_test_registry.h"

#include <array>
#include <new>
#include <stdexcept>

#include "utils/language_registry/language_registry.h"

namespace language_registry {
namespace {

constexpr std::array<std::string_view, 2> PYTHON_TESTS = {"test_*.py", "*_test.py"};
constexpr std::array<std::string_view, 1> JAVA_TESTS = {"*Test.java"};
constexpr LanguageRecord PYTHON = {.tier = "code", .test_file_globs = PYTHON_TESTS};
constexpr LanguageRecord JAVA = {.tier = "code", .test_file_globs = JAVA_TESTS};
constexpr LanguageRecord MARKDOWN = {.tier = "docs", .test_file_globs = {}};
constexpr LanguageRecord JSON = {.tier = "data", .test_file_globs = {}};

}  // namespace

const TextSet& Languages::test_dir_names() const {
  static const TextSet names = {"tests", "test", "__tests__"};
  return names;
}

const LanguageRecord* Languages::classify(std::string_view name) const {
  ++sql_test_registry::classifications;
  if (name == "explode.py") throw std::runtime_error("registry exploded");
  if (name == "memory.py") throw std::bad_alloc();
  if (name.ends_with(".py")) return &PYTHON;
  if (name.ends_with(".java")) return &JAVA;
  if (name.ends_with(".md")) return &MARKDOWN;
  if (name.ends_with(".json")) return &JSON;
  return nullptr;
}

}  // namespace language_registry

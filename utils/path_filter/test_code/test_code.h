// Which paths are test code, and the production surface of a list of paths.
//
// A file is test code when it is of a code language, and either its name follows a
// test convention of that language or it lies in a test directory. A document or a
// data file never is, wherever it lies.
//
//   is_test_path("src/UserServiceTest.java")   // true: named like a test
//   is_test_path("Tests\\Foo.cs")              // true: in a test directory
//   is_test_path("tests/fixtures/users.json")  // false: data
//
// The languages, their conventions and the test directory names are the language
// registry's, asked anew on each call. Everything here may be called from any thread
// and throws only what the registry throws. For the same answers inside SQL queries,
// see test_code_sql.h.

#ifndef UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_H_
#define UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_H_

#include <concepts>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

#include "utils/path_filter/base/export.h"
#include "utils/path_filter/base/path_argument.h"

namespace path_filter {

/// Whether `path` is test code. `path` is relative or absolute, with either
/// separator; only its text is looked at, and ".." is not resolved. Directory names
/// match in any case, file names in their exact case. Costs one classification, the
/// few globs of the language, and one lookup for each directory.
PATH_FILTER_EXPORT bool is_test_path(PathArgument path);

/// What production_paths is told by name.
struct ProductionPathsOptions {
  /// Whether test code belongs to the surface too.
  bool include_tests = false;
};

/// The production surface of `paths`: those that are not test code, in their order
/// and with their duplicates. When that leaves nothing, all of them: the product of a
/// repository that is nothing but tests is its tests. `paths` is any range of texts
/// and is read once.
template <std::ranges::input_range Paths>
requires std::constructible_from<std::string, std::ranges::range_reference_t<Paths>>
    std::vector<std::string> production_paths(Paths&& paths, ProductionPathsOptions options = {}) {
  std::vector<std::string> all;
  for (auto&& path : paths) all.emplace_back(std::forward<decltype(path)>(path));
  if (options.include_tests) return all;
  std::vector<std::string> production;
  for (const std::string& path : all) {
    if (!is_test_path(path)) production.push_back(path);
  }
  return production.empty() ? all : production;
}

}  // namespace path_filter

#endif  // UTILS_PATH_FILTER_TEST_CODE_TEST_CODE_H_

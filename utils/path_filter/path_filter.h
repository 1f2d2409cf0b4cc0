// The path filter of a code-repository indexer: which files of a repository belong in
// the index, which rule leaves a file out and why, and which files are test code.
//
//   path_rules.h    the fixed directory rules, and what is taken from the registry
//   test_code.h     which paths are test code; the production surface
//   test_code_sql.h the same answer inside SQLite queries (link path_filter::sql)
//   index_scope.h   the scope of one repository: all rules together
//   tree_walk.h     the files of a tree that git does not list
//   git_ignore.h    the rules of one ignore file
//   logger.h        where warnings go
//
// The languages are those of the registry that is linked: see
// utils/language_registry/language_registry.h.

#ifndef UTILS_PATH_FILTER_PATH_FILTER_H_
#define UTILS_PATH_FILTER_PATH_FILTER_H_

#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/git_ignore/git_ignore.h"
#include "utils/path_filter/index_scope/index_scope.h"
#include "utils/path_filter/index_scope/tree_walk.h"
#include "utils/path_filter/path_rules/path_rules.h"
#include "utils/path_filter/test_code/test_code.h"
#include "utils/path_filter/test_code/test_code_sql.h"

#endif  // UTILS_PATH_FILTER_PATH_FILTER_H_

#!/bin/sh
# Checks the format of all sources, that every header stands alone, and that no include goes up.
set -eu
cd "$(dirname "$0")/.."
git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run --Werror

# Each folder includes itself and those behind it.
git ls-files 'utils/*.h' 'utils/*.cpp' | xargs awk '
  BEGIN {
    count = split("path_filter git_config path_filter/index_scope path_filter/git_ignore" \
      " path_filter/test_code path_filter/path_rules language_registry path_filter/base", folders)
    for (at = 1; at <= count; ++at) rank["utils/" folders[at]] = at
  }
  function folder(path) { sub("/[^/]*$", "", path); return path }
  /^#include "/ {
    split($0, parts, "\"")
    from = rank[folder(FILENAME)]
    to = rank[folder(parts[2])]
    if (parts[2] ~ /\.inc$/) next
    if (from && to && from <= to && (from != 2 || parts[2] ~ /git_config|export|path_argument/)) next
    print FILENAME ": includes " parts[2] > "/dev/stderr"
    failed = 1
  }
  END { exit failed }'

# A system's own code is in a file of its own.
if git grep -n '_WIN32' -- '*.h' '*.cpp' ':!*_windows.*' ':!utils/path_filter/base/export.h' >&2; then
  exit 1
fi

for header in $(git ls-files 'utils/*.h'); do
  printf '#include "%s"\n' "$header" |
    g++ -std=c++20 -fsyntax-only -Wall -Wextra -I. -x c++ - || { echo "$header does not stand alone" >&2; exit 1; }
done

#!/bin/sh
# Checks the format of all sources, and that every header stands alone.
set -eu
cd "$(dirname "$0")/.."
git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run --Werror
for header in $(git ls-files 'utils/*.h'); do
  printf '#include "%s"\n' "$header" |
    g++ -std=c++20 -fsyntax-only -Wall -Wextra -I. -x c++ - || { echo "$header does not stand alone" >&2; exit 1; }
done

#!/bin/bash
# package_test.sh CMAKE WORK: builds and installs the libraries, and an outer project each way.
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd) cmake=$1 work=$(mkdir -p "$2" && cd "$2" && pwd)
prefix=$work/stage/opt/path_filter include=$work/stage/opt/path_filter/include/path_filter
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig LD_LIBRARY_PATH=$prefix/lib
fail() { echo "package_test: $1" >&2; exit 1; }
rm -rf "$work"/{stage,tree,out-*}
mkdir -p "$work/tree/build" && touch "$work"/tree/{a.cpp,mine.cpp,build/b.cpp,package-lock.json}
git init -q "$work/tree" && git -C "$work/tree" config core.excludesFile ../mine
echo mine.cpp >"$work/mine"
expected=$'1 cpp\nmine.cpp: ignored by git\'s ignore rules\npackage-lock.json: a dependency lock'

for shared in OFF ON; do
  "$cmake" -S "$source" -B "$work/$shared" -G Ninja -DBUILD_SHARED_LIBS=$shared \
    -DPATH_FILTER_TESTS=OFF -DPATH_FILTER_PROGRAM=OFF -DPATH_FILTER_EXTENSION=OFF
  "$cmake" --build "$work/$shared"
  DESTDIR=$work/stage "$cmake" --install "$work/$shared" --prefix /opt/path_filter
done >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "the project does not build"; }

for header in $(cd "$include" && find . -name '*.h'); do
  g++ -std=c++20 -fsyntax-only -Wall -Wextra -Werror -I"$include" -x c++ - \
    <<<"#include \"$header\"" || fail "$header cannot be included alone"
done
! grep -r '#include <.*[./].*>' "$include" ||
  fail "a header needs more than the standard library"
! nm -DC "$prefix"/lib/*.so | grep ' T path_filter::internal::' | grep -v ::loaded_ ||
  fail "a shared library shows what is private"

while read -r way shared type compiler; do
  out=$work/out-$way-$shared-$type-$compiler
  if [ "$way" = pkg-config ]; then
    [ "$shared" = ON ] && static= || static=-static
    mkdir "$out" && "$compiler" -std=c++20 $static "$source/examples/embedding/main.cpp" -o "$out/embedding" \
      $(pkg-config ${static:+--static} --cflags --libs \
        path_filter-language_registry path_filter-git_config path_filter)
  else
    "$cmake" -S "$source/examples/embedding" -B "$out" -G Ninja -DPATH_FILTER_FROM="$way" \
      -DBUILD_SHARED_LIBS="$shared" -Dpath_filter_ROOT="$prefix" -DCMAKE_BUILD_TYPE="$type" \
      -DCMAKE_CXX_COMPILER="$compiler" && "$cmake" --build "$out"
  fi >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "$out does not build"; }
  [ "$("$out/embedding" "$work/tree" | LC_ALL=C sort)" = "$expected" ] ||
    fail "$out answers otherwise"
done <<'END'
package OFF Release g++
package OFF Debug clang++-14
package ON Release clang++-14
package ON Debug g++
pkg-config ON - g++
pkg-config ON - clang++-14
pkg-config OFF - g++
fetched OFF Debug g++
subdirectory ON Release clang++-14
END

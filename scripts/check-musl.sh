#!/bin/sh
# Compiles the component for musl, with all that it uses of Linux and without, and for two
# other systems, with the compiler and the C libraries that the Python package ziglang brings.
# SQL, which needs SQLite's headers, is left out. A minute or two; more the first time.
set -eu
cd "$(dirname "$0")/.."
out=build/musl
[ -x "$out/venv/bin/python" ] || python3 -m venv "$out/venv"
"$out/venv/bin/pip" install -q ziglang==0.17.1
# The headers of the libraries without those of the C library beside them.
mkdir -p "$out/include" "$out/objects"
cp /usr/include/xxhash.h /usr/include/xxh3.h /usr/include/utf8proc.h "$out/include"
sources=$(git ls-files 'utils/*.cpp' ':!utils/*_sql.cpp' ':!utils/*/platform_*')
root=$PWD
cd "$out/objects"
for road in "linux x86_64-linux-musl" "linux aarch64-linux-musl" "posix x86_64-linux-musl" \
  "posix x86_64-freebsd" "posix aarch64-macos"; do
  flags="-target ${road#* }"
  [ "${road% *}" = linux ] || flags="$flags -DPATH_FILTER_POSIX_ONLY"
  # shellcheck disable=SC2086 # several
  printf "$root/%s\n" $sources "utils/path_filter/base/platform_${road% *}.cpp" |
    xargs -P "$(nproc)" -n 4 ../venv/bin/python -m ziglang c++ $flags -std=c++20 -Wall -Wextra \
      -c -I"$root" -isystem ../include
  echo "compiles: $road"
done

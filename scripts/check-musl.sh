#!/bin/sh
# Compiles the component for musl, with all that it uses of Linux and without, and for two
# other systems, with the compiler and the C libraries that the Python package ziglang brings.
# SQL is left out, as it asks for SQLite. Some minutes.
set -eu
cd "$(dirname "$0")/.."
out=build/musl
[ -x "$out/venv/bin/python" ] || python3 -m venv "$out/venv"
"$out/venv/bin/pip" install -q ziglang
# The headers of the libraries without those of the C library beside them.
mkdir -p "$out/include"
cp /usr/include/xxhash.h /usr/include/xxh3.h /usr/include/utf8proc.h "$out/include"
for road in "linux x86_64-linux-musl" "linux aarch64-linux-musl" "posix x86_64-linux-musl" \
  "posix x86_64-freebsd" "posix aarch64-macos"; do
  flags="-target ${road#* }"
  [ "${road% *}" = linux ] || flags="$flags -DPATH_FILTER_POSIX_ONLY"
  for source in $(git ls-files 'utils/*.cpp' ':!utils/*_sql.cpp' ':!utils/*/platform_*') \
    "utils/path_filter/base/platform_${road% *}.cpp"; do
    # shellcheck disable=SC2086 # several
    "$out/venv/bin/python" -m ziglang c++ $flags -std=c++20 -O1 -Wall -Wextra -c "$source" -I. \
      -isystem "$out/include" -o "$out/object.o"
  done
  echo "compiles: $road"
done

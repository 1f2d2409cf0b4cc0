#!/bin/bash
# Puts what a release has into build/dist, with its checksums: the wheels, the source of the
# package, Debian's package, the static program, and the program and SQLite's extension for Windows.
# From one commit it is the same bytes each time.
set -euo pipefail
cd "$(dirname "$0")/.."
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C
version=$(sed -n 's/^project(path_filter VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
dist=$PWD/build/dist work=$PWD/build/dist-work
rm -rf "$dist" "$work" && mkdir -p "$dist" "$work"

cp build/wheels/*.whl build/packages/*.deb "$dist"
PATH="$PWD/build/zig/bin:$PATH" build/zig/bin/python -c "
from scikit_build_core.build import build_sdist
build_sdist('$dist')" >/dev/null

# A directory of what is packed, of the target's build.
lay_out() {
  mkdir -p "$work/$2"
  cp LICENSE NOTICE CHANGELOG.md build/cross/"$1"/program/path-filter.1 "$work/$2"
}
age() { find "$work/$1" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +; }

for processor in x86_64 aarch64; do
  name=path-filter-$version-linux-$processor
  lay_out $processor-linux-musl "$name"
  cp build/cross/$processor-linux-musl/program/path-filter program/path-filter.{bash,fish} \
    program/_path-filter "$work/$name"
  age "$name"
  tar -C "$work" --sort=name --owner=0 --group=0 --numeric-owner --mode=u+w,go-w -c "$name" |
    gzip -9n >"$dist/$name.tar.gz"
done

name=path-filter-$version-windows-x86_64
lay_out x86_64-windows-gnu "$name"
cp build/cross/x86_64-windows-gnu/{program/path-filter.exe,sqlite/path_filter_sqlite.dll} "$work/$name"
age "$name"
(cd "$work" && find "$name" -type f | sort | zip -qX9@ "$dist/$name.zip")

cd "$dist" && sha256sum -- * >SHA256SUMS && ls -l

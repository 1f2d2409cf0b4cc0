#!/bin/sh
# cross-files.sh KIND...: fetches into build/ what builds for other systems need beside Debian's
# packages of this one, as far as it is not there. The kinds:
#   zig      the compiler, with the C libraries of all systems, and nanobind: build/zig
#   sources  of the libraries that are not headers only: build/debian
#   headers  of the CPythons that wheels are for: build/python
#   arm64    Debian's Python for arm64, with what it needs to run: build/python/arm64
set -eu
cd "$(dirname "$0")/.."
build=$PWD/build
mkdir -p "$build/debian" "$build/python"

# Debian's archives, as this machine knows them but with sources and of arm64, in lists apart: the
# machine's own stay as they are, and nobody needs to be root.
apt() {
  apt-get -qq -o APT::Sandbox::User="$(id -un)" -o APT::Architectures::=arm64 \
    -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$build/debian/apt" \
    -o Dir::State::Lists="$build/debian/apt/lists" -o Dir::Cache="$build/debian/apt/cache" "$@"
}
if [ ! -e build/debian/apt ]; then
  mkdir -p build/debian/apt/lists/partial build/debian/apt/cache/archives/partial
  for list in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
    [ ! -e $list ] || sed 's/^Types: .*/Types: deb deb-src/; s/^deb \(.*\)/&\ndeb-src \1/' $list \
      >"build/debian/apt/$(basename $list | sed 's/sources.list$/old.list/')"
  done
  apt update
fi

unpack() { # into the directory, the packages
  directory=$1 && shift
  [ ! -e "$directory" ] || return 0
  mkdir -p "$directory.new/debs"
  (cd "$directory.new/debs" && apt download "$@")
  for deb in "$directory.new"/debs/*; do dpkg -x "$deb" "$directory.new"; done
  rm -r "$directory.new/debs"
  mv "$directory.new" "$directory"
}

for kind; do
  case $kind in
    zig)
      [ -x build/zig/bin/python ] || python3 -m venv build/zig
      build/zig/bin/pip install -q ziglang==0.17.1 nanobind==3.1.0 ;;
    sources)
      ls build/debian/utf8proc-*/ >/dev/null 2>&1 || (cd build/debian && apt source utf8proc) ;;
    headers) ;;
    arm64) ;;
  esac
done

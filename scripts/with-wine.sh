#!/bin/bash
# with-wine.sh COMMAND...: runs the command while a process of Wine's is there. The first of them
# starts others, which inherit its streams and outlive it: who waits for the end of its output, as
# ctest does, would wait for them.
set -euo pipefail
export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$(dirname "$(realpath "$0")")/../build/wine}
mkdir -p "$WINEPREFIX"
/usr/lib/wine/wine64 cmd /c exit </dev/null >/dev/null 2>&1
exec {input}> >(exec /usr/lib/wine/wine64 cmd >/dev/null 2>&1)  # ends when nobody can write to it
"$@" {input}>&-

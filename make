#!/bin/sh
# make, installed first where it is missing, with what the build needs.
command -v make >/dev/null || "$(dirname "$0")/scripts/install-packages.sh" build || exit
exec make "$@"

#!/bin/sh
# fuzz/run.sh SECONDS_PER_TARGET: runs each fuzz target that long. Stops at the first
# finding, whose input is kept in build/fuzz/findings.
set -eu
cd "$(dirname "$0")/.."
build=build/fuzz
# The targets write files: in memory, where there is such a place.
if [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
for target in bytes tree; do
  mkdir -p "$build/findings" "$build/corpus/$target"  # what is new; fuzz/corpus stays
  echo "== $target: $1 s"
  "$build/fuzz/$target" -max_total_time="$1" -timeout=10 -rss_limit_mb=2048 \
    -max_len=2048 -print_final_stats=1 -artifact_prefix="$build/findings/$target-" \
    -dict=fuzz/ignore_file.dict "$build/corpus/$target" "fuzz/corpus/$target" \
    >"$build/findings/$target.log" 2>&1 || { tail -n 60 "$build/findings/$target.log" >&2; exit 1; }
  grep -E "^(Done|stat::number_of_executed_units)" "$build/findings/$target.log"
done

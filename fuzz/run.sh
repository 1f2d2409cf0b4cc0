#!/bin/sh
# fuzz/run.sh SECONDS: runs the fuzz target that long. Stops at the first finding, whose input
# is kept in build/fuzz/findings; what is new of the corpus goes to build/fuzz/corpus.
set -eu
cd "$(dirname "$0")/.."
build=build/fuzz
mkdir -p "$build/findings" "$build/corpus"
"$build/fuzz/tree_fuzzer" -max_total_time="$1" -timeout=10 -rss_limit_mb=2048 -max_len=2048 \
  -print_final_stats=1 -artifact_prefix="$build/findings/" "$build/corpus" fuzz/corpus \
  >"$build/findings/log" 2>&1 || { tail -n 60 "$build/findings/log" >&2; exit 1; }
grep -E "^(Done|stat::number_of_executed_units)" "$build/findings/log"

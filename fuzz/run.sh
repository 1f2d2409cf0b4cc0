#!/bin/sh
# Runs each fuzz target for a number of seconds, one after the other. Stops at the first
# finding; the input that shows it is kept in build/fuzz/findings.
#
#   fuzz/run.sh SECONDS_PER_TARGET
set -eu
cd "$(dirname "$0")/.."
seconds=${1:?usage: fuzz/run.sh SECONDS_PER_TARGET}
build=build/fuzz
mkdir -p "$build/findings"

# The pointer target writes files: in memory, where there is such a place.
if [ -w /dev/shm ]; then
  export TMPDIR=/dev/shm
fi

for target in rule_set shell_glob paths git_pointer; do
  # What is found new goes to the first directory; fuzz/corpus stays as it is.
  mkdir -p "$build/corpus/$target"
  echo "== $target: $seconds s"
  "$build/fuzz/${target}_fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -max_len=2048 -print_final_stats=1 -artifact_prefix="$build/findings/$target-" \
    -dict=fuzz/ignore_file.dict "$build/corpus/$target" "fuzz/corpus/$target" \
    >"$build/findings/$target.log" 2>&1 || {
    tail -n 60 "$build/findings/$target.log" >&2
    exit 1
  }
  grep -E "^(Done|stat::number_of_executed_units)" "$build/findings/$target.log"
done

#!/bin/bash
# Measures path-filter beside its peers and prints one table: what, both figures, their ratio,
# the target and whether it is met.
#
#   benchmarks/compare.sh BUILD_DIR [PART...]
#
# The parts are process (whole processes), calls (their system calls), memory (a tree of a
# million files), scope, rules and sql (the programs of those names in this directory), and
# python (the package, as PYTHON has it). All but sql and python,
# which no line of the table needs, run when none is named. "scope rules" is what is quick.
#
# ROUNDS and REPETITIONS say how often processes (4 runs a round) and functions are measured.
# The two sides of a ratio take turns and the fastest run of each counts, for other work on
# the machine can only slow a run down. Functions of one thread are measured in processor
# time. All processes write to /dev/null.
#
# The trees are made once: the kernel's sources and a million files, in a directory bench-data
# beside BUILD_DIR, or where PATH_FILTER_BENCHMARK_DATA says.
#
# The exit status is 0 whatever the figures are, and 1 when something could not be run.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
[ $# -ge 1 ] || { sed -n '2,/^set/{/^set/d;s/^# \?//p}' "$0" >&2; exit 2; }
build=$(cd "$1" && pwd)
shift
parts=" ${*:-process calls memory scope rules} "
rounds=${ROUNDS:-6}
repetitions=${REPETITIONS:-9}
data=${PATH_FILTER_BENCHMARK_DATA:-$(dirname "$build")/bench-data}
tree=$data/linux-source-6.1
million=$data/million-files
results=$build/results
path_filter=$build/program/path-filter
rows=$results/rows

fail() { echo "compare.sh: $*" >&2; exit 1; }
progress() { echo "compare.sh: $*" >&2; }
part() { case $parts in *" $1 "*) ;; *) return 1 ;; esac; }

for tool in awk bfs fdfind find git hyperfine jq rg strace /usr/bin/time; do
  command -v "$tool" >/dev/null || fail "$tool is missing; run scripts/install-packages.sh bench"
done
[ -x "$path_filter" ] || fail "$path_filter is missing; build the preset bench"
for word in $parts; do
  case $word in
    process | calls | memory | scope | rules | sql | python) ;;
    *) fail "there is no part $word" ;;
  esac
done

# --- The trees, and settings that are the same for everyone.

mkdir -p "$data" "$results"
data=$(cd "$data" && pwd)
: >"$rows"

# ripgrep and fd apply ignore rules only in a repository, for which a directory .git above
# the trees will do. It is not in the trees: they are to hold the same files for everyone.
mkdir -p "$data/.git"
# git's own repository is outside the trees too; its index is empty.
repository=$data/empty-repository
git_command="git --git-dir='$repository' --work-tree=. -c core.excludesFile=/dev/null"
[ -d "$repository" ] || git init -q --bare --template= "$repository"
export HOME=$data/no-settings XDG_CONFIG_HOME=$data/no-settings
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE RIPGREP_CONFIG_PATH

if [ ! -d "$tree" ] && [[ "$parts" != " memory " ]]; then
  archive=/usr/src/linux-source-6.1.tar.xz
  [ -f "$archive" ] || fail "$archive is missing; run scripts/install-packages.sh bench"
  progress "unpacking the kernel's sources"
  rm -rf "$data/unfinished"
  mkdir "$data/unfinished"
  tar -xJf "$archive" -C "$data/unfinished"
  # Debian's last lines ignore the whole tree but for debian/.
  sed -i '/^# Debian packaging:/,$d' "$data/unfinished/linux-source-6.1/.gitignore"
  mv "$data/unfinished/linux-source-6.1" "$data/"
  rmdir "$data/unfinished"
fi
export PATH_FILTER_BENCHMARK_TREE=$tree

# --- Rows of the table.

# row WHAT OURS THEIRS RATIO TARGET: TARGET is "<= 0.5", ">= 40" or empty.
row() { (IFS=$'\t' && echo "$*") >>"$rows"; }
divide() { awk -v a="$1" -v b="$2" 'BEGIN { if (b == 0) exit 1; printf "%.3f\n", a / b }'; }
milliseconds() { awk -v t="$1" 'BEGIN { printf "%.1f ms\n", t * 1000 }'; }

# --- Whole processes.

# compare_processes GROUP NAME COMMAND [NAME COMMAND]...: fills `fastest`, in seconds.
declare -A fastest
compare_processes() {
  local group=$1 round name seconds
  shift
  local -a arguments=()
  while [ $# -gt 0 ]; do
    [ "$( (eval "$2" </dev/null || true) | head -c 1 | wc -c)" = 1 ] || fail "no output: $2"
    arguments+=(--command-name "$1" "$2")
    shift 2
  done
  rm -f "$results/$group".*.json
  for ((round = 1; round <= rounds; ++round)); do
    # Statuses are ignored: 1 only says that some paths are left out.
    hyperfine --shell=none --ignore-failure --style none --warmup 1 --runs 4 \
      --export-json "$results/$group.$round.json" "${arguments[@]}" >/dev/null 2>&1 ||
      fail "hyperfine failed on: ${arguments[*]}"
  done
  while IFS=$'\t' read -r name seconds; do
    fastest[$name]=$seconds
  done < <(jq -rs '[.[].results[]] | group_by(.command)[]
                   | [.[0].command, (map(.min) | min)] | @tsv' "$results/$group".*.json)
}

process_row() {  # WHAT OURS THEIRS TARGET
  row "$1" "$(milliseconds "${fastest[$2]}")" "$(milliseconds "${fastest[$3]}")" \
    "$(divide "${fastest[$2]}" "${fastest[$3]}")" "$4"
}

rg_command="rg --files --hidden -j1"
fd_command="fdfind -H -j1 -t f ."
list_files_command="$git_command ls-files -o --exclude-standard"

if part process; then
  progress "whole processes: list"
  cd "$tree"
  find . ! -type d -printf '%P\0' >"$results/names"
  compare_processes list \
    list "'$path_filter' list -j1" rg "$rg_command" fd "$fd_command" \
    ls-files "$list_files_command" find "find ." bfs "bfs ." \
    list-json "'$path_filter' list -j1 --json" list-all "'$path_filter' list" \
    rg-all "rg --files --hidden" fd-all "fdfind -H -t f ."
  process_row "list -j1 / rg --files --hidden -j1" list rg "<= 0.5"
  process_row "list -j1 / fdfind -H -j1 -t f" list fd "<= 0.5"
  process_row "list -j1 / git ls-files -o --exclude-standard" list ls-files "<= 0.7"
  process_row "list -j1 / find" list find "<= 1.5"
  process_row "list -j1 / bfs" list bfs ""
  process_row "list / list -j1 ($(nproc) processors)" list-all list "<= 0.6"
  process_row "list / rg --files --hidden" list-all rg-all "<= 0.4"
  process_row "list / fdfind -H -t f" list-all fd-all "<= 0.4"
  process_row "list -j1 --json / list -j1" list-json list "<= 1.5"

  progress "whole processes: check"
  # A shell gives each its input and becomes it: a millisecond that both sides have.
  names_to() { echo "sh -c \"exec $1 <'$results/names'\""; }
  compare_processes check \
    check "$(names_to "'$path_filter' check --stdin -0")" \
    check-json "$(names_to "'$path_filter' check --stdin -0 --json")" \
    check-ignore "$(names_to "$git_command check-ignore --no-index --stdin -z")" \
    check-ignore-all "$(names_to "$git_command check-ignore --no-index --stdin -z -v -n")"
  process_row "check --stdin -0 / git check-ignore --stdin -z -v -n" check check-ignore-all "<= 0.25"
  process_row "check --stdin -0 / git check-ignore --stdin -z" check check-ignore "<= 0.25"
  process_row "check --stdin -0 --json / check --stdin -0" check-json check "<= 1.5"
fi

# --- Functions.

# run_benchmark PROGRAM: measures all of it, in a random order.
run_benchmark() {
  progress "$1"
  "$build/benchmarks/$1" --benchmark_repetitions="$repetitions" --benchmark_min_time=0.1 \
    --benchmark_enable_random_interleaving=true --benchmark_out_format=json \
    --benchmark_out="$results/$1.json" >"$results/$1.txt" 2>&1 ||
    { cat "$results/$1.txt" >&2; fail "$1 failed"; }
  measured=$results/$1.json
}

# best FIELD NAME: of all repetitions, the least processor time in milliseconds ("time") or
# the greatest value of a counter.
best() {
  jq -er --arg field "$1" --arg name "$2" '
    [.benchmarks[] | select(.run_type == "iteration" and .run_name == $name)]
    | if $field == "time"
      then map(.cpu_time * {"ns": 1e-6, "us": 1e-3, "ms": 1}[.time_unit]) | min
      else map(.[$field]) | max end' "$measured" || fail "no $1 of $2 in $measured"
}

shown() { awk -v t="$1" 'BEGIN { printf t < 0.1 ? "%.4f ms\n" : "%.2f ms\n", t }'; }
function_row() {  # WHAT OURS THEIRS TARGET
  local ours theirs
  ours=$(best time "$2")
  theirs=$(best time "$3")
  row "$1" "$(shown "$ours")" "$(shown "$theirs")" "$(divide "$ours" "$theirs")" "$4"
}

if part scope; then
  run_benchmark scope_benchmark
  function_row "warm is_indexable / lookup of the whole path" \
    Warm/shuffled:0 MapLookup/shuffled:0 "<= 2.5"
  function_row "the same, the paths in a random order" Warm/shuffled:1 MapLookup/shuffled:1 "<= 3"
  function_row "libgit2's ignore query / warm is_indexable" \
    Libgit2/iterations:1 Warm/shuffled:0 ">= 40"
  function_row "first questions, whole tree / bare walk" First BareWalk "<= 2"
fi

if part rules; then
  scope_measured=${measured-}
  run_benchmark rule_set_benchmark
  function_row "10,000 rules / 100 rules, the tree's paths" Ask/tree/10000 Ask/tree/100 "<= 2"
  function_row "10,000 rules / 100 rules, paths of the rules' words" \
    Ask/generated/10000 Ask/generated/100 "<= 2"
  # It would be 1000, were each level matched anew.
  function_row '1,000 rules of "**", 2,000 levels / the last alone' Deep/levels:2000 \
    Deep/levels:1 "<= 4"
  declare -A per_rule
  for count in 100 1000 10000 100000; do
    per_rule[$count]=$(awk -v t="$(best time "Build/$count")" -v n="$count" \
      'BEGIN { printf "%.0f\n", t * 1e6 / n }')
    row "building $count rules, a rule / 1 microsecond" "${per_rule[$count]} ns" "1000 ns" \
      "$(divide "${per_rule[$count]}" 1000)" "<= 1"
  done
  # Linear, but for the processor's caches: were it quadratic, this would be 100.
  row "building, a rule of 100000 / a rule of 1000" "${per_rule[100000]} ns" \
    "${per_rule[1000]} ns" "$(divide "${per_rule[100000]}" "${per_rule[1000]}")" "<= 3"
  measured=$scope_measured
fi

if part scope; then
  one=$(best best Threads/threads:1/own:0/manual_time)
  two=$(best best Threads/threads:2/own:0/manual_time)
  own=$(best best Threads/threads:2/own:1/manual_time)
  millions() { awk -v n="$1" 'BEGIN { printf "%.2f M/s\n", n / 1e6 }'; }
  row "two threads on one scope / one thread" "$(millions "$two")" "$(millions "$one")" \
    "$(divide "$two" "$one")" ">= 1.8"
  row "two threads, each a scope of its own / one thread" "$(millions "$own")" \
    "$(millions "$one")" "$(divide "$own" "$one")" ""
fi

# --- Memory.

if part memory; then
  if [ ! -d "$million" ]; then
    progress "making a million files"
    "$here/make_million_files.sh" "$million"
  fi
  progress "memory"
  cd "$million"
  peak() {
    local round least=
    for round in 1 2 3; do
      /usr/bin/time -f %M -o "$results/peak" "$@" >/dev/null || fail "failed: $*"
      if [ -z "$least" ] || [ "$(cat "$results/peak")" -lt "$least" ]; then
        least=$(cat "$results/peak")
      fi
    done
    echo "$least"
  }
  ours=$(peak "$path_filter" list -j1)
  theirs=$(peak rg --files -j1)
  row "a million files: peak memory, list -j1 / rg --files -j1" "$ours KiB" "$theirs KiB" \
    "$(divide "$ours" "$theirs")" "<= 1.3"
fi

if part scope; then
  allocations=$(best allocations Indexed)
  row "allocations of a warm decision \"indexed\"" "$allocations" "" "$allocations" "<= 0"
  function_row "is_test_path / language and lock-file steps" IsTestPath LanguageAndLockfile "<= 2"
  function_row "refresh, 100,000 directories known / none" \
    Refresh/directories:100000/rules:0/iterations:5 Refresh/directories:0/rules:0/iterations:5 ""
  function_row "the first question after it, 100,000 known / one" \
    FirstAfter/directories:100000/refreshed:1/iterations:5 \
    FirstAfter/directories:1/refreshed:1/iterations:5 ""
fi

# --- The table, and what has no ratio.

awk -F '\t' '
  { for (i = 1; i <= 5; ++i) cell[NR, i] = $i }
  END {
    split("what|ours|theirs|ratio|target|", head, "|")
    split("64|10|10|8|8", width, "|")
    for (i = 1; i <= 5; ++i) printf(i == 1 ? "%-*s" : "  %*s", width[i], head[i])
    print ""
    for (row = 1; row <= NR; ++row) {
      for (i = 1; i <= 5; ++i) printf(i == 1 ? "%-*s" : "  %*s", width[i], cell[row, i])
      split(cell[row, 5], target, " ")
      ratio = cell[row, 4] + 0
      if (cell[row, 5] == "") print ""
      else if (target[1] == "<=" ? ratio <= target[2] : ratio >= target[2]) print "  met"
      else { print "  MISSED"; ++missed }
    }
    print ""
    print(missed ? missed " short of the target" : "every target met")
  }' "$rows"

if part calls; then
  cd "$tree"
  directories=$(find . -type d | wc -l)
  files=$(find . ! -type d | wc -l)
  echo
  echo "System calls on $files files in $directories directories:"
  calls() {
    local name=$1
    shift
    strace -f -c -o "$results/calls.$name" "$@" >/dev/null 2>&1 || return 0
    awk -v name="$name" -v directories="$directories" -v files="$files" '
      $NF == "total" { printf "  %-12s %8d  %.2f a directory, %.2f a file;", name, $4,
                              $4 / directories, $4 / files }
      $4 ~ /^[0-9]+$/ && $NF != "total" && $4 > directories / 10 { often = often " " $NF " " $4 }
      END { print often }' "$results/calls.$name"
  }
  calls list "$path_filter" list -j1
  calls find find .
  calls bfs bfs .
  # shellcheck disable=SC2086 # a list of words
  calls rg $rg_command
fi

if part sql; then
  progress "sql_benchmark"
  echo
  "$build/benchmarks/sql_benchmark" --benchmark_min_time=0.1
fi

if part python; then
  progress "python_benchmark"
  echo
  ROUNDS=$rounds "${PYTHON:-python3}" "$here/python_benchmark.py" \
    "$build/benchmarks/scope_benchmark" "$tree"
fi

#!/bin/sh
# Prints how many lines of tests there are beside the code, data and build files of the tests
# included; fails above 35 %.
set -eu
cd "$(dirname "$0")/.."

lines() { # in the tracked files of these patterns that are not blank
  git ls-files -z -- "$@" | LC_ALL=C xargs -0r awk 'NF { ++lines } END { print lines + 0 }' |
    awk '{ lines += $1 } END { print lines + 0 }'
}

tests=$(lines tests fuzz '*_test.cpp' '*_test.py' 'test_*.py' '*/test_*.py' ':!fuzz/corpus')
code=$(lines '*.cpp' '*.cc' '*.h' '*.hpp' '*.py' '*.mjs' '*.ts' '*.js' \
  ':!tests' ':!fuzz' ':!benchmarks' ':!scripts' \
  ':!*_test.cpp' ':!*_test.py' ':!test_*.py' ':!*/test_*.py')
share=$((1000 * tests / code))
echo "tests: $tests non-blank lines beside $code of code: $((share / 10)).$((share % 10)) %"
[ $((100 * tests)) -le $((35 * code)) ]

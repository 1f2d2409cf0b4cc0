#!/bin/bash
# bash program_test.sh [EMULATOR...] PROGRAM: runs the commands of program_test.txt and compares the session
# with that file. Each "== section" begins in the repository of a fresh tree, $ROOT, which reads
# ROOT in the session. Below a command is what it prints, errors too, and its [status] unless 0.

transcript=$(realpath "$(dirname "$0")")/program_test.txt
program=$(realpath "${@: -1}") emulator=("${@:1:$# - 1}") system_path=$PATH
ROOT=$(mktemp -d -p /dev/shm 2> /dev/null || mktemp -d) || exit
trap 'rm -rf "$ROOT"' EXIT
unset "${!GIT_@}"; umask 022
export ROOT LC_ALL=C PATH_FILTER_GIT_TIMEOUT=600 GIT_CONFIG_NOSYSTEM=1 HOME=$ROOT/home XDG_CONFIG_HOME=

fresh_tree() {
  cd "$ROOT" && chmod -R 755 . && rm -rf ./*
  mkdir -p bin fake home/.config/git repo/{.git/info,src,node_modules}
  if [ "$emulator" ]; then
    printf '#!/bin/sh\nexec %s %s "$@"\n' "${emulator[*]}" "$program" | install /dev/stdin bin/path-filter
  else
    cp "$program" bin
  fi
  printf '#!/bin/bash\neval "$GIT"\n' | install /dev/stdin fake/git
  echo data.json > home/.config/git/ignore
  cd repo && PATH=$ROOT/bin:$system_path
  printf '*.md\n!/keep.md\n/gen\n*\e*.c\n' > .gitignore
  echo 'print()' > src/app.py
  echo | tee .git/info/exclude src/web.ts {keep,notes}.md {data,package-lock}.json > node_modules/a
}

while IFS= read -r line; do
  case $line in
    '== '*) printf '\n%s\n' "$line"; fresh_tree ;;
    '# '*) echo "$line" ;;
    '$ '*) echo "$line"; eval "${line:2}" 2>&1 < /dev/null || echo "[$?]" ;;
  esac
done < "$transcript" |
  sed "s:$ROOT:ROOT:g; s/Illegal byte sequence/Invalid or incomplete multibyte or wide character/" |
  diff -u "$transcript" -

#!/bin/bash
# FAKE_GIT=FILE bash program_test.sh [EMULATOR...] PROGRAM: runs the commands of program_test.txt and
# compares the session with that file. Each "== section" begins in the repository of a fresh tree,
# $ROOT, which reads ROOT in the session. Below a command is what it prints, errors too, and its
# [status] unless 0. "# Not on Windows: why" is for the command below it.

program=$(realpath "${@: -1}") fake_git=$(realpath "$FAKE_GIT") emulator=("${@:1:$# - 1}") system_path=$PATH
ROOT=$(mktemp -d -p /dev/shm 2> /dev/null || mktemp -d) || exit
trap 'rm -rf "$ROOT"' EXIT
unset "${!GIT_@}"; umask 022
export WINEPREFIX=${WINEPREFIX:-$HOME/.wine}
export ROOT LC_ALL=C PATH_FILTER_GIT_TIMEOUT=600 GIT_CONFIG_NOSYSTEM=1 HOME=$ROOT/home XDG_CONFIG_HOME=
[[ $program != *.exe ]] || export LC_ALL=C.UTF-8  # or Wine reads names as ASCII

transcript() {
  if [[ $program == *.exe ]]; then
    awk '/^# Not on Windows/ { left_out = 2 } left_out && /^== / { print "" }
      /^(\$ |== )/ && left_out { --left_out } /^# [^N]/ { left_out = 0 } !left_out'
  else
    cat
  fi < "$(dirname "$0")/program_test.txt"
}

fresh_tree() {
  cd "$ROOT" && chmod -R 755 . && rm -rf ./*
  mkdir -p bin fake home/.config/git repo/{.git/info,src,node_modules}
  if [[ $program == *.exe ]]; then  # Wine passes no HOME on, and has a PATH of its own
    cat << END | install /dev/stdin bin/path-filter
#!/bin/bash
[ "\$XDG_CONFIG_HOME" ] || [ ! "\$HOME" ] || export XDG_CONFIG_HOME=\$HOME/.config
WINEPATH="Z:\${PATH//:/;Z:}" exec ${emulator[*]} $program "\$@"
END
  elif [ "$emulator" ]; then
    printf '#!/bin/sh\nexec %s %s "$@"\n' "${emulator[*]}" "$program" | install /dev/stdin bin/path-filter
  else
    cp "$program" bin
  fi
  cp "$fake_git" "fake/git${fake_git##*fake_git}"
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
done < <(transcript) |
  sed "s:$ROOT:ROOT:g; s/[Zz]:ROOT/ROOT/g
       s/Illegal byte sequence/Invalid or incomplete multibyte or wide character/" |
  diff -u <(transcript) -

#!/bin/bash
# bash completion_test.sh PROGRAM: what bash, zsh and fish offer at the end of command lines.

export completions=$(realpath "$(dirname "$0")/../program") TERM=dumb LC_ALL=C
export PATH=$(dirname "$(realpath "$1")"):$PATH
HOME=$(mktemp -d) || exit
trap 'rm -rf "$HOME"' EXIT
mkdir -p "$HOME/work/src" && cd "$HOME/work" && touch notes.toml || exit

source "$completions/path-filter.bash"
ask_bash() {
  read -ra COMP_WORDS <<< "${1//=/ = }"
  [[ $1 == *' ' ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _path_filter path-filter "${COMP_WORDS[COMP_CWORD]#=}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}"
}

# Only zsh's line editor completes: here one that writes down what it offers, and exits.
cat > "$HOME/.zshrc" << 'ZSHRC'
fpath=($completions $fpath)
autoload -Uz compinit && compinit -u
compadd() {
  local -a offered
  [[ ${@[1,(i)(-|--)]} == *-[ADO]* ]] || builtin compadd -A offered "$@"  # those fill arrays
  print -rl -- $IPREFIX$^offered >&3
  builtin compadd "$@"
}
zle-line-init() { BUFFER=$asked CURSOR=$#BUFFER; zle complete-word; exit }
zle -N zle-line-init
ZSHRC
ask_zsh() {
  asked=$1 ZDOTDIR=$HOME zsh -fc \
    'zmodload zsh/zpty; zpty it zsh -d -i; while zpty -r it; do; done' 3>&1 > /dev/null
}

ask_fish() { fish --no-config -c 'source $completions/path-filter.fish; complete -C $argv' "$1"; }

while IFS='|' read -r line expected; do
  for shell in bash zsh fish; do
    answer=$("ask_$shell" "$line" 2>&1 < /dev/null |
      sed 's/\t.*//; s/^--[a-z-]*=//; s:/$::; /^$/d' | sort -u | paste -sd ' ')
    [[ $answer == "$expected" ]] || echo "$shell: '$line' gives '$answer', not '$expected'"
  done
done < <(
  cat << 'LINES'
path-filter |check help languages list report rules summary
path-filter help l|languages list
path-filter list |notes.toml src
path-filter summary --root=|src
path-filter check --config |notes.toml src
path-filter check list n|notes.toml
path-filter check --max-file-size-mb |
path-filter languages go pyth|python
path-filter list --languages=go,pyth|go,python
path-filter list --kind size,l|size,language size,lockfile
path-filter rules --color=a|always auto
LINES
  for command in "" check help languages list report rules summary; do
    options=$(path-filter $command --help | grep -oP '^  (-.,)*\K--[a-z-]+' | sort | paste -sd ' ')
    echo "path-filter ${command:+$command }--|$options"
  done
) | (! grep .)

# bash completion for path-filter

# The words of a shape, an extended regular expression, at the left of a command's help.
_path_filter_help() {
  path-filter ${1:+"$1"} --help 2>/dev/null | sed -nE "s/^  (-.,)*($2)( .*)?$/\2/p"
}

# "=" is a word of its own in COMP_WORDS, "," is not.
_path_filter() {
  local current=$2 option=$3 command="" words="" files="" prefix=""
  ((COMP_CWORD > 1)) && command=${COMP_WORDS[1]}
  [[ $option == = ]] && option=${COMP_WORDS[COMP_CWORD - 2]}

  case $option in
    --root) files=-d ;;
    --config | --output | -o) files=-f ;;
    --max-file-size-mb | --threads | -j) ;;
    --languages) words=$(path-filter languages 2>/dev/null | cut -sf 1) ;;
    --kind) words=$(path-filter rules 2>/dev/null | grep '^[a-z]') ;;
    --color) words="auto always never" ;;
    --sort) words=path ;;
    *)
      case $command:$current in
        *:-*) words=$(_path_filter_help "$command" '--[a-z-]+') ;;
        :* | help:*) words=$(_path_filter_help "" '[a-z]+') ;;
        list:* | check:*) files=-f ;;
        summary:* | report:*) files=-d ;;
        languages:*) words=$(path-filter languages 2>/dev/null | cut -sf 1) ;;
      esac
      ;;
  esac

  if [[ -n $files ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$files" -- "$current")
  else
    if [[ $option == --languages || $option == --kind ]]; then
      compopt -o nospace 2>/dev/null # a comma may follow
      prefix=${current%"${current##*,}"}
    fi
    mapfile -t COMPREPLY < <(compgen -P "$prefix" -W "$words" -- "${current#"$prefix"}")
  fi
}
complete -F _path_filter path-filter

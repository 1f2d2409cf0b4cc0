# bash completion for path-filter

_path_filter() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local limits="--config --max-file-size-mb --languages --help"
  local command="" word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in list | check | summary | languages)
      command=$word
      break
      ;;
    esac
  done

  COMPREPLY=()
  case $previous in
    --root)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --config)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --max-file-size-mb) return ;;
    --languages)
      mapfile -t COMPREPLY < <(compgen -W "$(path-filter languages 2>/dev/null |
        sed -n 's/^\([a-z][^	]*\)	.*/\1/p')" -- "$current")
      return
      ;;
  esac

  local words=""
  case $command in
    "") words="list check summary languages --help --version" ;;
    list) words="--root --null --json --excluded --production --tests $limits" ;;
    check) words="--root --stdin --null --json --verbose $limits" ;;
    summary) words="--root $limits" ;;
    languages) words="--json --help" ;;
  esac
  if [[ -z $command || $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  elif [[ $command == check ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  fi
}
complete -o filenames -F _path_filter path-filter

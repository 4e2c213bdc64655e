# shellcheck shell=bash
# Completion for tarvel and tarvel-backend in bash. The programs' own help texts say what there is.
_tarvel_complete() {
  local command=$1 word=$2 previous=$3 subcommand=() help words
  COMPREPLY=()
  case $previous in
    --html | --httpdns-cache | --report | --trust | --write-certificate) compopt -o default; return ;;
    --data | --log-dir) compopt -o dirnames; return ;;
    --family) mapfile -t COMPREPLY < <(compgen -W "any 4 6" -- "$word"); return ;;
  esac
  case ${command##*/}/${COMP_WORDS[1]} in
    tarvel/[a-z]* | tarvel-backend/lab) [[ $COMP_CWORD -gt 1 ]] && subcommand=("${COMP_WORDS[1]}") ;;
  esac
  help=$("$command" "${subcommand[@]}" --help 2>/dev/null) || return 0
  case $word in
    -*) words=$(sed -nE 's/^  (-h,)?(--[a-z-]+).*/\2/p' <<<"$help") ;;
    *) words=$(sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+).*/\1/p' <<<"$help") ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o default -F _tarvel_complete tarvel tarvel-backend

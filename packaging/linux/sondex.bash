# shellcheck shell=bash
# Completion of sondex's words in bash. Names of processes are not among them: bash would expand what
# somebody put into one.
_sondex() {
  local words=
  case $COMP_CWORD in
    1) words='all gestalt monitor vmmon -h' ;;
    2)
      case ${COMP_WORDS[1]} in
        gestalt | vmmon | -h) ;;
        monitor) words='vm process' ;;
        *) words='all binary core fds net ports regions threads tree' ;;
      esac
      ;;
    3) if [[ ${COMP_WORDS[2]} == core ]]; then words=mini; fi ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _sondex sondex

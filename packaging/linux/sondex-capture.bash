# shellcheck shell=bash
# Completion of sondex-capture's options in bash.
_sondex_capture() {
  local words=
  if ((COMP_CWORD == 1)); then words='--check --help'; fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _sondex_capture sondex-capture

# shellcheck shell=bash
# Completion of sondex's and sondex-capture's words in bash. Names of processes are shown and never
# put into the line.

# Adds to what is offered the PIDs that begin as the word does. They are this machine's, not those of
# a simulated device; one that is chosen on the line itself bash does not show here.
_sondex_pids() {
  local word=$1 pid name pids=() named=()
  if [[ -n ${SONDEX_DEVICE:-} ]]; then return; fi
  while read -r pid name; do
    if [[ $pid != "$word"* ]]; then continue; fi
    pids+=("$pid")
    named+=("$pid (${name//[^[:print:]]/?})")
  done < <(ps -A -o pid= -o comm= 2>/dev/null)
  # Where bash lists them; what begins all of several PIDs ends before their names.
  if ((${#pids[@]} > 1)) && [[ ${COMP_TYPE:-9} == @(33|63|64) ]]; then pids=("${named[@]}"); fi
  COMPREPLY+=("${pids[@]}")
}

_sondex() {
  local words='' word=${COMP_WORDS[COMP_CWORD]}
  case $COMP_CWORD in
    1)
      words='all gestalt monitor vmmon'
      if [[ $word == -* ]]; then words=-h; fi
      ;;
    2)
      case ${COMP_WORDS[1]} in
        gestalt | vmmon | -h) ;;
        monitor) words='vm process' ;;
        *) words='all binary core fds net ports regions threads tree' ;;
      esac
      ;;
    3) if [[ ${COMP_WORDS[1]} != monitor && ${COMP_WORDS[2]} == core ]]; then words=mini; fi ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if ((COMP_CWORD == 1)); then _sondex_pids "$word"; fi
}

_sondex_capture() {
  local words='-o --anonymous --json --memory --stacks' word=${COMP_WORDS[COMP_CWORD]}
  local before=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  if [[ ${COMP_WORDS[1]} == --@(check|help) ]] && ((COMP_CWORD > 1)); then return; fi
  if [[ $before == -o ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  elif [[ $word == -* && $before != --memory ]]; then
    if ((COMP_CWORD == 1)); then words+=' --check --help'; fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  else
    _sondex_pids "$word"
  fi
}

complete -F _sondex sondex
complete -F _sondex_capture sondex-capture

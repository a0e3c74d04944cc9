# shellcheck shell=bash
# For scripts that look at a thing from many sides: they say everything that is wrong with it, and
# fail at their end when `bad` is set. To be sourced after common.sh.

bad=0
complain() {
  say "$(basename "$0"): $*"
  # shellcheck disable=SC2034 # for the scripts that source this
  bad=1
}

# $1: what is expected; $2: what is there; $3: what it is about.
same_text() {
  if [[ $1 != "$2" ]]; then
    complain "$3 is not as expected:"
    diff <(printf '%s\n' "$1") <(printf '%s\n' "$2") | sed 's/^/  /' >&2 || true
  fi
}

# shellcheck shell=bash
# What the scripts share: where the repository is, how they speak, how many jobs they start.
# To be sourced, not run. Everything said goes to standard error: standard output belongs to the
# program or to the result of the script.

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck disable=SC2034 # for the scripts that source this
jobs=$(nproc 2>/dev/null || echo 2)

say() {
  printf '%s\n' "$*" >&2
}

die() {
  say "$(basename "$0"): $*"
  exit 1
}

# Prints the version that CMakeLists.txt gives the project.
project_version() {
  local version
  version=$(sed -nE 's/^project\(sondex VERSION ([0-9.]+) .*/\1/p' "$repo/CMakeLists.txt")
  [[ -n $version ]] || die "no version in CMakeLists.txt"
  printf '%s\n' "$version"
}

# Prints the date of the source, in seconds since 1970, which what is made bears in the place of the day
# when it is made: SOURCE_DATE_EPOCH where that is set; else that of the last commit, or of the build's
# description where there is no git.
source_date() {
  if [[ -n ${SOURCE_DATE_EPOCH:-} ]]; then
    printf '%s\n' "$SOURCE_DATE_EPOCH"
  else
    git -C "$repo" log -1 --format=%ct 2>/dev/null || stat -c %Y "$repo/CMakeLists.txt"
  fi
}

# Prints the .h and .cpp files below the named folders of the repository, as paths from its root,
# NUL after each, in order. Folders that do not exist, and what was built, are passed over.
list_sources() {
  local folder folders=()
  for folder in "$@"; do
    if [[ -d $repo/$folder ]]; then folders+=("$folder"); fi
  done
  if ((${#folders[@]} == 0)); then return; fi
  (cd "$repo" && find "${folders[@]}" \( -path ./build -o -path ./.git \) -prune -o \
    -type f \( -name '*.h' -o -name '*.cpp' \) -print0) | sort -z
}

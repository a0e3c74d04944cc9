# shellcheck shell=bash
# For scripts that want files out of Debian packages without having them installed. To be sourced
# after common.sh.

# Puts what Debian packages hold into a folder: fetched and checked by apt, and unpacked. Nothing is
# installed, and apt's knowledge is kept apart, so that it takes neither root nor a change to this
# machine. Does nothing when the folder holds these packages already.
# $1: folder; $2: Debian's name of the architecture; the rest: packages. In a shell of its own, which
# leaves nothing half done behind.
unpack_packages() (
  folder=$1 architecture=$2
  shift 2
  wanted="$architecture: $*"
  if [[ $(cat "$folder/PACKAGES" 2>/dev/null) == "$wanted" ]]; then exit 0; fi
  for tool in apt-get dpkg-deb; do
    command -v "$tool" >/dev/null || die "$tool is not installed: this takes a Debian machine"
  done

  mkdir -p "$(dirname "$folder")"
  work=$(mktemp -d "$(realpath "$(dirname "$folder")")/packages.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/packages" "$work/unpacked"
  : >"$work/status"
  cat >"$work/apt.conf" <<END
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Sandbox::User "root";
Dir::State "$work";
Dir::State::lists "$work/lists";
Dir::State::status "$work/status";
Dir::Cache "$work/cache";
END

  say "$(basename "$0"): fetching $* for $architecture"
  export APT_CONFIG=$work/apt.conf
  if ! (cd "$work/packages" && apt-get -q update && apt-get -q download "$@") \
    >"$work/log" 2>&1 </dev/null; then
    tail -n 40 "$work/log" >&2
    die "apt could not fetch the packages"
  fi
  for package in "$work"/packages/*.deb; do dpkg-deb --extract "$package" "$work/unpacked"; done
  echo "$wanted" >"$work/unpacked/PACKAGES"
  rm -rf "$folder"
  mv "$work/unpacked" "$folder"
  chmod 755 "$folder"
)

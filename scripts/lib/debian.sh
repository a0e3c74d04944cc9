# shellcheck shell=bash
# For scripts that make trees of Debian packages, or want files out of them without having them
# installed. To be sourced after common.sh.

# shellcheck disable=SC2034 # for the scripts that source this
debian_release=bookworm

# Prints this machine's package sources as lines of a sources.list: Debian's own, of the release and
# its updates.
debian_sources() {
  # shellcheck disable=SC2016 # apt fills these in
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | grep -E "^deb [^ ]+ $debian_release(-[^ ]+)? " | sort -u || true
}

# How this machine's apt reaches its sources: proxies, and whether dates are to be believed.
apt_settings() {
  apt-config dump | grep -E '^Acquire::((https?|ftp)::Proxy|Check-(Date|Valid-Until))\b' || true
}

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
  scratch=$(mktemp -d "$(realpath "$(dirname "$folder")")/packages.XXXXXX")
  trap 'rm -rf "$scratch"' EXIT
  mkdir -p "$scratch/lists/partial" "$scratch/cache/archives/partial" "$scratch/packages" "$scratch/unpacked"
  : >"$scratch/status"
  cat >"$scratch/apt.conf" <<END
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Sandbox::User "root";
Dir::State "$scratch";
Dir::State::lists "$scratch/lists";
Dir::State::status "$scratch/status";
Dir::Cache "$scratch/cache";
END

  say "$(basename "$0"): fetching $* for $architecture"
  export APT_CONFIG=$scratch/apt.conf
  if ! (cd "$scratch/packages" && apt-get -q update && apt-get -q download "$@") \
    >"$scratch/log" 2>&1 </dev/null; then
    tail -n 40 "$scratch/log" >&2
    die "apt could not fetch the packages"
  fi
  for package in "$scratch"/packages/*.deb; do dpkg-deb --extract "$package" "$scratch/unpacked"; done
  echo "$wanted" >"$scratch/unpacked/PACKAGES"
  rm -rf "$folder"
  mv "$scratch/unpacked" "$folder"
  chmod 755 "$folder"
)

# shellcheck shell=bash
# What the scripts around the executable for the device share: its date, and a reader of the text
# stubs in packaging/device/stubs/, which list for each library of the device the symbols that the
# program uses. To be sourced from the repository's root, after common.sh.

# The executables, by their names in build/device/.
# shellcheck disable=SC2034 # for who sources this
programs=(sondex sondex-capture)

# Compiler and packer read the date of what they make from here.
export SOURCE_DATE_EPOCH
SOURCE_DATE_EPOCH=$(source_date)

# Where the library is on the device. $1: stub.
stub_library() {
  sed -nE "s/^install-name: *'(.*)'$/\1/p" "$1"
}

# The symbols that a stub lists, one per line. Target lists are passed over: only lists of symbols
# count. $1: stub, or another file of that form; $2: a pattern that the line of targets above a
# list has to match, when only some targets are wanted.
stub_symbols() {
  awk -v wanted="${2:-.}" '
    /targets:/ { on = $0 ~ wanted }
    /symbols:/ { listing = 1; sub(/^.*symbols: *\[/, "") }
    listing && on {
      line = $0
      gsub(/[][,\047]/, " ", line)
      count = split(line, names, " ")
      for (i = 1; i <= count; i++) print names[i]
    }
    /\]/ { listing = 0 }
  ' "$1" | LC_ALL=C sort -u
}

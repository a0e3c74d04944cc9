# shellcheck shell=bash
# Readers of the JUnit files that ctest writes. To be sourced.

# Reads a number from the head of the file. $1: file; $2: attribute.
junit_count() {
  sed -n "s/^[[:space:]]*$2=\"\([0-9]*\)\".*/\1/p" "$1" | head -n 1
}

# Prints a line for each test of the file that was skipped: its name and why, as it said. $1: file.
junit_skipped() {
  awk -v quote='"' '
    /<testcase / { split($0, parts, quote); name = parts[2]; skipped = 0 }
    /<testcase / && /status="disabled"/ { print name ": disabled" }
    /<skipped / { skipped = 1; reason = "no reason given" }
    skipped && after { reason = $0 }
    { after = /: Skipped$/ }
    /<\/testcase>/ && skipped { print name ": " reason; skipped = 0 }
  ' "$1" | sed "s/&quot;/\"/g; s/&apos;/'/g; s/&lt;/</g; s/&gt;/>/g; s/&amp;/\&/g"
}

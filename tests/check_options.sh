#!/usr/bin/env bash
# Every option and subcommand that a program's help shows stands in its manual page and in its
# completion:
#     check_options.sh SOURCE-ROOT PROGRAM...
set -euo pipefail

root=$1
status=0
require() {  # FILE PATTERN
  grep -qE -e "$2" "$1" || { echo "$1 lacks $2" >&2; status=1; }
}

check() {  # PROGRAM SUBCOMMAND...
  local help name page completion
  page=$root/docs/man/${1##*/}.1 completion=$root/completions/${1##*/}.bash
  help=$("$@" --help)
  while read -r name; do
    require "$page" "Fl -$name( |\$)"
    require "$completion" "--$name([^a-z-]|\$)"
  done < <(grep -oE '^  (-h,)?--[a-z-]+' <<<"$help" | sed 's/.*--//')
  while read -r name; do
    require "$page" "^\.Ss .*$name"
    require "$completion" "[' ]$name([' )]|\$)"
    check "$@" "$name"
  done < <(sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' <<<"$help")
}

for program in "${@:2}"; do check "$program"; done
exit $status

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
    if [[ $# -eq 1 && -n ${folders[${1##*/}-$name]:-} ]]; then
      check_other_program "$1" "$name"
    else
      check "$@" "$name"
    fi
  done < <(sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' <<<"$help")
}

# A subcommand that runs a program of its own hands even --help on to it.
check_other_program() {  # PROGRAM SUBCOMMAND
  local other=${1##*/}-$2
  diff <("$1" "$2" --help) <("${folders[$other]}/$other" --help) >&2 || status=1
}

declare -A folders  # of each program
for program in "${@:2}"; do folders[${program##*/}]=$(dirname "$program"); done
for program in "${@:2}"; do check "$program"; done
exit $status

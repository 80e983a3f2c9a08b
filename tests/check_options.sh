#!/usr/bin/env bash
# What the programs' help shows is in their manual pages, and the completions for bash, zsh and fish offer
# it: every option where it is valid, every subcommand, and nothing else:
#     check_options.sh SOURCE-ROOT PROGRAM...
set -euo pipefail

root=$1
status=0
require() {  # FILE PATTERN
  grep -qE -e "$2" "$1" || { echo "$1 lacks $2" >&2; status=1; }
}

# --- what a completion offers behind a program and its subcommands, a word a line -------------------

offered_by_bash() (  # PROGRAM SUBCOMMAND...
  COMP_WORDS=("$@" '') COMP_CWORD=$#
  # shellcheck source=/dev/null
  source "$root/completions/$1.bash"
  "_${1//-/_}"
  printf '%s\n' "${COMPREPLY[@]}"
)

# The file keeps to what bash reads as well. Here its functions show what they are told to complete.
# shellcheck disable=SC2034,SC2317  # they are for the file
offered_by_zsh() (  # PROGRAM SUBCOMMAND...
  set +u
  words=('' "$@")  # zsh counts from 1
  _arguments() {
    if [[ " $* " == *'->argument '* && ${#words[@]} -gt 2 ]]; then
      state=argument words=("${words[@]:1}")
    else
      state=subcommand
      printf '%s\n' "$@"
    fi
  }
  _describe() {
    local -n entries=$2
    printf '%s\n' "${entries[@]%%:*}"
  }
  # shellcheck source=/dev/null
  source "$root/completions/$1.zsh"
  "_${1//-/_}" |
    sed -nE 's/^(\([^)]*\)|\*)?(--[a-z-]+)\[.*/\2/p; s/^1:action:\((.*)\)$/\1/p; /^[a-z][a-z-]*$/p' |
    tr ' ' '\n'
)

offered_by_fish() (  # PROGRAM SUBCOMMAND...
  at=none
  if (($# > 1)); then at=${*: -1}; fi
  sed -e ':join' -e '/\\$/{N;s/\\\n *//;b join' -e '}' "$root/completions/$1.fish" |
    grep -E "^complete -c $1 (-n 'not |-n '__veltra_at ([^']* )?${at}[ ']|-[^n])" |
    sed -nE "s/.* -l ([a-z-]+)( .*|\$)/--\1/p; s/.*' -a ([a-z-]+) .*/\1/p"
)

offered_by() {  # SHELL PROGRAM SUBCOMMAND...
  case $1 in
    bash) offered_by_bash "${@:2}" ;;
    zsh) offered_by_zsh "${@:2}" ;;
    fish) offered_by_fish "${@:2}" ;;
  esac
}

# --- against the help -------------------------------------------------------------------------------

check() {  # PROGRAM SUBCOMMAND...
  local help name page program=${1##*/} options subcommands shell
  page=$root/docs/man/$program.1
  help=$("$@" --help)
  mapfile -t options < <(grep -oE '^  (-h,)?--[a-z-]+' <<<"$help" | sed 's/.*--/--/')
  mapfile -t subcommands < <(sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' <<<"$help")
  for shell in bash zsh fish; do
    diff <(printf '%s\n' "${options[@]}" "${subcommands[@]}" | sort -u) \
      <(offered_by $shell "$program" "${@:2}" | sort -u) >&2 ||
      { echo "$program ${*:2}: the completion for $shell (<: of the help)" >&2; status=1; }
  done
  for name in "${options[@]}"; do require "$page" "Fl ${name#-}( |\$)"; done
  for name in "${subcommands[@]}"; do
    require "$page" "^\.Ss .*$name"
    if [[ $# -eq 1 && -n ${folders[$program-$name]:-} ]]; then
      check_other_program "$1" "$name"
    else
      check "$@" "$name"
    fi
  done
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

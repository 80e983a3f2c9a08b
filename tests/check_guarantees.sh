#!/usr/bin/env bash
# Each guarantee that is promised names what holds it: in the tables of docs/internals/guarantees.md the last
# column has a test (Suite.Name) that exists, or a file of the tree, and is never empty.
#
#     check_guarantees.sh SOURCE_DIR
set -euo pipefail
cd "$1"

status=0
complain() {
  printf '%s\n' "$*" >&2
  status=1
}

is_test() { # SUITE NAME
  grep -rqzE "TEST(_F|_P)?\(\s*$1,\s*$2\s*\)" tests --include='*.cpp'
}

guarantees=0
while IFS='|' read -r _ promise held _; do
  [[ "$promise" =~ ^[[:space:]]*(-+|guarantee)[[:space:]]*$ ]] && continue
  guarantees=$((guarantees + 1))
  names="$(grep -oE '`[^`]+`' <<<"$held" | tr -d '`' || true)"
  [[ -n "$names" ]] || complain "nothing holds:$promise"
  while read -r name; do
    [[ -z "$name" || -e "$name" ]] && continue
    [[ "$name" == *.* ]] && is_test "${name%%.*}" "${name#*.}" && continue
    complain "there is no test or file $name"
  done <<<"$names"
done < <(grep '^|' docs/internals/guarantees.md)
((guarantees > 0)) || complain 'no guarantee found'
exit $status

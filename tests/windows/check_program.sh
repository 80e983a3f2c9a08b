#!/usr/bin/env bash
# The program veltra as a user on Windows meets it: exit status, standard streams, texts and file
# names beyond ASCII, and the whole demonstration.
#     check_program.sh GATEWAYS COMMAND...
# GATEWAYS is the folder that "gateways start" fills; the command runs the program.
set -euo pipefail

gateways="$1"
shift
program=("$@")
plain="$(<"$gateways/program")"
tls="$(<"$gateways/tls")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cd "$work"
export LC_ALL=C.UTF-8 # in which wine takes arguments and file names
unset VELTRA_APP_KEY VELTRA_SECRET_KEY
failed=0

# check STATUS PATTERN ARGUMENT...: standard output, which gets no carriage returns, matches as a whole.
check() {
  local wanted="$1" pattern="$2" status=0 output
  shift 2
  output="$("${program[@]}" "$@" <in 2>err)" || status=$?
  # shellcheck disable=SC2053  # it is a pattern
  [[ "$status" == "$wanted" && "$output" == $pattern ]] && return
  failed=1
  printf 'veltra %s\n  status %s, not %s; output, not %s:\n%s\n' "$*" "$status" "$wanted" "$pattern" \
    "$output"
  cat err
}

: >in
check 0 'veltra [0-9]*' --version
check 2 '' time --no-such-option
check 127 '' gateway --port 8080
check 0 '{"ok":true,"time":"2024-03-14 23:59:59"}' time -1d --now '2024-03-15 10:20:30' --json
check 0 '15218726658691856878' phrase-key 'über straße'
check 0 $'15218726658691856878\n16498177632431545144' phrase-key 'über straße' '*'
printf 'über straße\r\n\r\n\x1a' >in
check 0 $'15218726658691856878\n[0-9]*' phrase-key

mkdir größe
printf '%s' '{"keys":[{"appKey":"good","secretKey":"secret"}]}' >größe/schlüssel.json
printf 'bläue vogel\n' >größe/sätze.txt
printf '\xff\xd8\xff\x0d\x0a\x1a' >größe/bild.jpg
with_keys=(--domain "$plain" --credentials größe/schlüssel.json)
check 0 "$plain answers" probe "$plain"
check 0 'Hello Ä"€, welcome to B.' query greeting 'name=Ä"€' place=B "${with_keys[@]}"
check 1 '' query greeting name=A 'place=bläue vogel' --phrase-file größe/sätze.txt "${with_keys[@]}"
check 2 '' query greeting name=A place=B --phrase-file größe "${with_keys[@]}"
check 0 '[0-9a-f]*' feedback submit --trace-id t --comment ä --picture größe/bild.jpg \
  --log-level detail "${with_keys[@]}"
grep -q '"feedbackDescription":"ä"' err || { failed=1 && echo 'no body on standard error'; }
check 0 '*Every step went as expected.' demo --gateway "$plain" --credentials größe/schlüssel.json
check 0 'Hello A, welcome to B.' query greeting name=A place=B --domain "$tls" \
  --ca-file "$gateways/ca.pem" --credentials größe/schlüssel.json
check 1 '' probe "$tls"

status=0
"${program[@]}" time -1d >/dev/full 2>err || status=$?
[[ "$status" == 1 ]] || { failed=1 && echo "lost output: status $status"; }
{ seq 3000 | "${program[@]}" phrase-key --json 2>err || true; } | :
[[ ! -s err ]] || { failed=1 && cat err; }
exit "$failed"

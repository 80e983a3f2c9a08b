#!/usr/bin/env bash
# The program veltra as a user meets it, against local gateways: exit status, standard output, standard
# error. No output shows a secret key, or the name that goes with it.
#
#     check_cli.sh VELTRA VELTRA-GATEWAY
set -euo pipefail

veltra="$(realpath "$1")"
gateway="$(realpath "$2")"
secret='s3cret"4712'
work="$(mktemp -d)"
gateways=()
trap 'kill "${gateways[@]}" 2>/dev/null; rm -rf "$work"' EXIT
cd "$work"
export LC_ALL=C.UTF-8 TZ=UTC
unset VELTRA_APP_KEY VELTRA_SECRET_KEY
failed=0
status=0
with=()

complain() {
  failed=1
  printf '%s\n' "$@" >&2
}

run() { # ARGUMENT...: leaves status and the files out and err
  status=0
  timeout 60 "${with[@]}" "$veltra" "$@" <in >out 2>err || status=$?
  ! grep -e 's3cret' -e 'app-4711' out err >&2 || complain "veltra $*: shows a secret"
}

# Standard output is, or matches, the pattern as a whole; standard error holds the words, or nothing
# where they are "-".
check() { # STATUS PATTERN WORDS ARGUMENT...
  local wanted="$1" pattern="$2" words="$3" output error good=1
  run "${@:4}"
  output="$(<out)"
  error="$(<err)"
  [[ "$status" == "$wanted" ]] || good=0
  # shellcheck disable=SC2053  # it is a pattern
  [[ "$output" == "$pattern" || "$output" == $pattern ]] || good=0
  if [[ "$words" == - ]]; then [[ -z "$error" ]] || good=0; else [[ "$error" == *"$words"* ]] || good=0; fi
  ((good)) || complain "veltra ${*:4}" "  status $status, not $wanted; output, not $pattern:" "$output" \
    "  standard error, without $words:" "$error"
}

# Wrong usage: nothing on standard output, a reason on standard error.
usage() { # WORDS ARGUMENT...
  check 2 '' "$@"
  [[ -s err ]] || complain "veltra ${*:2}: no reason"
}

start() { # NAME OPTION...: a gateway, whose URL is then in the file of that name
  "$gateway" --port 0 --key "app-4711:$secret" --ready-file "$1" "${@:2}" >/dev/null &
  gateways+=($!)
  local tries
  for ((tries = 0; tries < 200; ++tries)); do
    [[ ! -s "$1" ]] || break
    sleep 0.05
  done
}

control() { # METHOD PATH [BODY]: of the gateway over HTTP
  curl -sS -X "$1" "$(<plain)/control/$2" ${3:+-d "$3"}
}

at() { # STATUS PATTERN WORDS COMMAND ARGUMENT...: at the gateway over HTTP
  local command="$4"
  # shellcheck disable=SC2086  # of two words, some
  check "$1" "$2" "$3" $command --credentials keys.json --domain "$(<plain)" "${@:5}"
}

: >in
printf '{"keys":[{"appKey":"app-4711","secretKey":"s3cret\\"4712"}]}' >keys.json
chmod 600 keys.json
start plain
start tls --tls --ca-out ca.pem

# --- wrong usage ---------------------------------------------------------------------------------

echo '{"keys":[{"appKey":"s3cret"}]}' >broken.json
: >empty
truncate -s $((32 * 1024 * 1024 + 1)) huge
for name in 1 2 3 4 5; do echo $name >$name; done
check 0 '*' - --version
usage 'Usage: veltra '
usage 'no subcommand no-such; see veltra --help' no-such
usage 'see veltra --help' ''
usage '' demo
usage '' probe gateway
usage '' probe http://localhost:1 --log-level 1
usage '' phrase-key --no-such
usage 'needs detail, progress, warning, error, none, or' time T --log-level loud
usage '' query
usage 'no option --no-such; see veltra query --help' query --no-such
usage '' query greeting
usage 'expected NAME=VALUE: name' query greeting name
usage '--repeat: the value is missing; see' query greeting --repeat
usage '--satisfaction: good is not a valid value; see' feedback submit --trace-id t --satisfaction good
VELTRA_APP_KEY=half usage '' query greeting
usage 'see veltra query --help' query greeting --repeat 0
usage 'see veltra query --help' query greeting --repeat 9 --threads 257
usage '--threads requires --repeat' query greeting --threads 2
usage 'Usage: veltra feedback ' feedback
usage 'no option --no-such; see veltra feedback cancel --help' feedback cancel --no-such
with_keys=(--credentials keys.json)
usage '' query greeting --credentials broken.json
usage '' query greeting --credentials absent.json
usage '' query greeting noequals "${with_keys[@]}"
usage '' query greeting a=1 a=2 "${with_keys[@]}"
usage '' query greeting --filter 5 "${with_keys[@]}"
usage '' query greeting a=$'\377' "${with_keys[@]}"
usage '' feedback submit "${with_keys[@]}"
printf 'a\0' >zero
usage 'begins with @ is written @@' query greeting name=@absent "${with_keys[@]}"
usage 'cannot read .' query greeting name=@. "${with_keys[@]}"
usage '32 MiB at most' query greeting name=@huge "${with_keys[@]}"
usage 'zero byte' query greeting name=@zero "${with_keys[@]}"
usage '@- can be given once' query greeting name=@- place=@- "${with_keys[@]}"
picture=(feedback submit --trace-id t "${with_keys[@]}" --picture)
usage 'does not exist' "${picture[@]}" absent
usage 'is a directory' "${picture[@]}" .
usage 'empty picture' "${picture[@]}" empty
usage '32 MiB at most' "${picture[@]}" huge
usage 'picture given twice' "${picture[@]}" 1 1
usage '4 pictures at most' "${picture[@]}" 1 2 3 --picture 4 5
# On standard output as JSON, which is always UTF-8.
no() { printf '{"ok":false,"code":%s,"message":"%s"%s}' "$1" "$2" "${3:-}"; }
answered='"outcome":"Succeeded","detail":"","attempts":[1-9],"httpStatus":200}'
check 2 "$(no 0 'there is no option --json; see veltra --help')" '' --json
check 2 "$(no 0 'no credentials: give --credentials FILE, or set VELTRA_APP_KEY and VELTRA_SECRET_KEY')" '' \
  query --json greeting
check 2 "$(no 0 'expected NAME=VALUE: ����é')" '' query --json a $'\377\355\240\200\303\251' "${with_keys[@]}"

# --- time and phrase keys ------------------------------------------------------------------------

check 0 '2024-03-11 00:00:00' - time +0w --first-day 1 --start-of-day --now 1710498030
check 0 '{"ok":true,"time":"2024-03-15 10:20:30"}' - time T --json --now '2024-03-15 10:20:30'
check 1 '' 'time' time -1m --now '2024-03-31 10:20:30' # there is no 31 February
check 1 '' 'xyz' time -2hxyz
usage '' time -1d --now '2024-02-31 10:20:30'
usage '' time -1d --first-day 7
usage '' time

two=14651858152940190130
check 0 "$two"$'\n*' 'phrase 2: never found' phrase-key 'two words' '[a,b]'
check 0 "{\"ok\":true,\"keys\":[{\"phrase\":\"two words\",\"key\":\"$two\"}]}" - phrase-key --json 'two words'
run phrase-key 'two words' '[a,b]'
mv out both
printf 'two words\r\n\n[a,b]' >in
check 0 "$(<both)" 'standard input, line 3: never found' phrase-key
: >in
run phrase-key two\ words\\ 'a\\b' 'a\\b'\\
{ echo "$two" && cat out; } >keys
check 0 "$(<keys)" - phrase-key --escaped 'two words' 'a\b'
check 0 "{\"ok\":true,\"keys\":[{\"phrase\":\"two words\",\"key\":\"$two\",\"keyBeforeQuote\":\"$(sed -n 2p keys)\"}]}" - \
  phrase-key --json --escaped 'two words'
# Once the pipe's reader has gone:
{
  trap '' PIPE
  while echo; do :; done 2>no
  for phrases in x "$(seq 999)"; do
    # shellcheck disable=SC2086
    "$veltra" phrase-key --json $phrases 2>>lost && complain 'lost keys count as printed'
  done
} | : || true
[[ ! -s lost ]] || complain "$(<lost)"

# --- queries -------------------------------------------------------------------------------------

at 0 'Hello Ada, welcome to "C:\new".' - 'query greeting' name=Ada 'place="C:\new"' \
  --filter 3 --sensitive one --sensitive '[2,3]'
control GET requests | grep -qF '\"inputWords\":[\"one\",\"[2,3]\"],\"filterTags\":[\"checkOutput\"]' ||
  complain 'the options were not sent'
at 0 '{"ok":true,"traceId":"t-1","answer":"Hello Ada, welcome to \\"x\\".",'"$answered" - 'query greeting' \
  name=Ada 'place="x"' --trace-id t-1 --json

printf 'top  secret\r\n\nback\\slash\n' >phrases.txt
refused() { # CODE MESSAGE ARGUMENT...
  at 1 '' "refused: code $1: $2" query "${@:3}" --log-level 5
  at 1 "$(no "$1" "$2" ',"outcome":"*"*')" '' query "${@:3}" --json
}
refused 6 'unknown prompt key: absent' absent
refused 4 'CCF083001: the input is not acceptable' greeting name=forbidden --filter 2
refused 4 'has sensitive words' greeting 'name=a top secret' --phrase-file phrases.txt
refused 4 'has sensitive words' greeting 'name=back\slash' --phrase-file phrases.txt
at 0 '*' 'phrases.txt, line 1: never found: more words' 'query greeting' 'name=top secret' \
  --phrase-file phrases.txt --phrase-limit 1

# What editors put around a text is none of it.
printf '\xEF\xBB\xBFAda\r\n' >in
at 0 'Hello Ada, welcome to @home.' - 'query greeting' name=@- place=@@home
printf '\xEF\xBB\xBFmerger\r\n\nbad-word\n' | tee marked >in
at 1 '' 'marked, line 3: never found' 'query greeting' 'name=the "merger"' --phrase-file marked
at 0 '*' 'name has line breaks' 'query greeting' name=@in --phrase-file phrases.txt
: >in

fault() { control POST faults "$1" >fault; }
fault '{"path":"/api/tmqgw/v1/token/get","kind":"garbage","text":"HTTP/1.1 200 OK\r\n\r\n{\"errorCode\":\"1\",\"message\":\"s3cret\\\"4712\"}"}'
at 1 "$(no 0 'the login failed: no key pair yielded a token' ',"outcome":"Refused","detail":"*\*\*\*","attempts":1,"httpStatus":200')" '***' 'query greeting' --json --log-level 2
control DELETE faults >fault

VELTRA_APP_KEY=app-4711 VELTRA_SECRET_KEY="$secret" check 0 '*' - query greeting --domain "$(<plain)"
chmod 644 keys.json
at 0 '*' 'other users may read keys.json' 'query greeting'
chmod 600 keys.json
for where in '>&-' '>/dev/full' '<&- >&- 2>&-'; do
  status=0
  sh -c "'$veltra' query greeting name=lost --credentials keys.json --domain $(<plain) 2>err $where" || status=$?
  [[ "$status" == 1 ]] || complain "lost output, $where: status $status"
done

check 0 "{\"ok\":true,\"domain\":\"$(<tls)\",$answered" - probe "$(<tls)/" --ca-file ca.pem --json
check 1 '' "failed: $(<tls) does not answer like a gateway: certificate: SSL certificate problem" probe "$(<tls)"

# --- repetition ----------------------------------------------------------------------------------

control DELETE requests >fault
fault '{"on":"query","kind":"refuse","code":"7","text":"no","times":11}'
at 1 '{"ok":false,"code":6,"message":"no","traceId":"t","repeat":40,"threads":3,"run":40,"answered":29,"failed":11,"interrupted":false,"seconds":*,"latencyMs":{"min":*},"failures":\[{"code":6,"count":11,"message":"no"}\]}' - \
  'query greeting' --repeat 40 --threads 3 --trace-id t --json
traces="$(control GET requests | grep -oE '\\"traceId\\":\\"t-[0-9]+\\"' | sort -u)"
[[ "$(wc -l <<<"$traces")" == 40 && "$traces" == *'t-40\"'* ]] || complain "trace ids: $traces"
at 0 'queries: 1 run, 1 answered, 0 failed; threads: 1; seconds: *' - 'query greeting' --repeat 1 --threads 9
at 1 $'*\ncode 6: 2 failed: unknown prompt key: absent' - 'query absent' --repeat 2
! grep -q latency out || complain "$(<out)"
# On a terminal, which turns what is typed into a signal, once the progress line is there.
status=0
{
  timeout 60 sh -c 'until grep -q "of 1000000 queries" typescript; do sleep 0.02; done' 2>/dev/null
  printf '\003'
} | timeout 60 script -qefc "'$veltra' query greeting --repeat 1000000 --json --credentials keys.json \
--domain $(<plain)" typescript >out 2>&1 || status=$?
[[ "$status" == 130 && "$(<typescript)" == *$' \r{'*'"message":"interrupted: '*'"interrupted":true,"seconds":'* ]] ||
  complain "interrupted: $status" "$(<typescript)"

# --- feedback ------------------------------------------------------------------------------------

printf '\xff\xd8\xff\0one\r\n' >one.jpg
{ printf '\xff\xd8\xff' && seq 20000; } >two.jpg
at 0 '{"ok":true,"feedbackId":"*",'"$answered" '{"traceId":"t-1","satisfactionType":-2' 'feedback submit' \
  --trace-id t-1 --satisfaction -2 --type 7 --comment 'says "no"' --country FR \
  --picture one.jpg two.jpg --json --log-level detail
id="$(sed 's/.*"feedbackId":"\([^"]*\)".*/\1/' out)"
control GET requests | grep -qF '\"satisfactionType\":-2,\"feedbackType\":7,\"feedbackDescription\":\"says \\\"no\\\"\",\"country\":\"FR\"' ||
  complain 'the feedback was not sent as it was given'
pictures="$(control GET pictures)"
for file in one.jpg two.jpg; do
  [[ "$pictures" == *"$(sha256sum <$file | cut -d' ' -f1)"* ]] || complain "no $file among $pictures"
done
at 0 "$id" - 'feedback cancel' "$id"
at 1 '{"ok":false,"code":0,"message":"not withdrawn","outcome":"Refused","detail":"*","attempts":1,"httpStatus":200}' '' 'feedback cancel' "$id" --json
# A limit on the whole call, and Ctrl-C, which "timeout" sends twice.
fault '{"path":"/api/tmqgw/aillm/v1/third","kind":"delay","number":3000}'
at 1 '*"outcome":"TimedOut",*' '' 'query greeting' --time-limit-ms 200 --json --log-level none
with=(timeout --preserve-status --signal INT 0.3)
at 130 '*"outcome":"Cancelled",*' '' 'query greeting' --json --log-level none
with=()
control DELETE faults >fault
fault '{"path":"/storage","kind":"status","number":500}'
echo 'not a JPEG file' >one.png
at 1 '' 'warning: one.png is not a JPEG file' 'feedback submit' --trace-id t-3 --picture one.png
grep -q 'Upload pic to S3 failed!' err || complain "$(<err)"
control DELETE faults >fault
at 0 '?*' - 'feedback submit' --trace-id t-2
[[ "$(control GET feedback)" == *"$(<out)"* ]] || complain 'another feedback id'

# --- the demonstration, and the gateway program --------------------------------------------------

check 0 '*feedback id *' - demo "${with_keys[@]}" --gateway "$(<plain)"
! grep -q '{' out || complain "the library's lines: $(<out)"
fault '{"path":"/api/tmqgw/aillm/v1/third","kind":"refuse","code":"7"}'
check 1 '*' 'deviation in step 5' demo "${with_keys[@]}" --gateway "$(<plain)"
check 1 '{"ok":false,"code":0,"message":"deviation in step *' '' demo --json "${with_keys[@]}" --gateway "$(<tls)"

# A copy, far from the gateway that the build left. A link resolves to where the program lies.
mkdir -p path build/veltra build/gateway
cp "$veltra" build/veltra
ln -s build/veltra/veltra link
veltra="$work/link"
with=(env PATH=/nowhere)
check 127 '' '' gateway
check 127 "$(no 0 'veltra-gateway cannot be run')" '' gateway --json
# shellcheck disable=SC2016
printf '#!/bin/sh\necho "${0##*/}" "$@"\nexit 7\n' >path/veltra-gateway
with=(env PATH="$work/path")
check 126 '' '' gateway
chmod 700 path/veltra-gateway
with=(env PATH="$work/path:$PATH")
check 7 'veltra-gateway --help -- --json  a b' '' gateway --help -- --json '' 'a b'
for place in gateway veltra; do  # beside it goes first
  printf '#!/bin/sh\necho %s\n' "$place" >"build/$place/veltra-gateway"
  chmod 700 "build/$place/veltra-gateway"
  check 0 "$place" - gateway
done
exit $failed

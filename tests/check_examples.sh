#!/usr/bin/env bash
# Every example runs against the local gateway and says what it should:
#     check_examples.sh SOURCE-ROOT GATEWAY-PROGRAM EXAMPLES-FOLDER
# With a fourth argument, a compiler, EXAMPLES-FOLDER is a build of the whole tree: that is installed,
# and the examples are built against what was installed.
set -euo pipefail

root=$1 gateway_program=$2 examples=$3
folder=$(mktemp -d)
gateway=
clean_up() {
  if [[ -n "$gateway" ]]; then kill "$gateway"; wait "$gateway" || true; fi
  rm -rf "$folder"
}
trap clean_up EXIT

if [[ -n "${4:-}" ]]; then
  cmake --install "$3" --prefix "$folder/prefix" >/dev/null
  cmake -S "$root/examples" -B "$folder/build" -G Ninja -DCMAKE_CXX_COMPILER="$4" \
    -DCMAKE_PREFIX_PATH="$folder/prefix" -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror' >/dev/null
  cmake --build "$folder/build" -j2 >"$folder/log" || { cat "$folder/log"; exit 1; }
  examples=$folder/build
fi

"$gateway_program" --key demo:secret --ready-file "$folder/url" >/dev/null &
gateway=$!
for ((i = 0; i < 200; ++i)); do
  if [[ -e "$folder/url" ]]; then break; fi
  sleep 0.05
done
url=$(<"$folder/url")
printf '\xff\xd8\xff\xe0 a picture' >"$folder/one.jpg"
printf '\xff\xd8\xff\xe0 another one' >"$folder/two.jpg"
echo 'no picture' >"$folder/text"

status=0
run() {  # EXIT-STATUS EXPECTED-LINE EXAMPLE ARGUMENT...: the line is an extended regular expression
  local expected=$1 line=$2 program=$examples/$3/$3 code=0
  if [[ $3 == python ]]; then program=$root/examples/python/ask.py; fi
  if [[ $3 == own_logger && ! -e $program ]]; then echo "no spdlog: $3 was not built"; return; fi
  VELTRA_APP_KEY=demo VELTRA_SECRET_KEY=${secret:-secret} timeout 60 "$program" "${@:4}" \
    >"$folder/said" 2>&1 || code=$?
  [[ $code == "$expected" ]] && grep -qE -e "$line" "$folder/said" && return
  printf '%s: status %s instead of %s, or no line %s in:\n' "${*:3}" "$code" "$expected" "$line"
  cat "$folder/said"
  status=1
}

run 0 '^Hello Ada, welcome to the library\.$' quickstart "$url"
run 0 '^80 of 80 queries answered$' many_threads "$url"
run 0 '^Bob: cancelled$' cancel_button "$url"
run 0 '^\[warning\] \[thread [0-9]+\] Veltra: .*sessionID isempty' own_logger "$url"
run 0 '^withdrawn$' feedback "$url" 'I said "no"'
run 0 '^submitted with 2 pictures$' feedback "$url" 'as shown' "$folder/one.jpg" "$folder/two.jpg"
run 0 '^loaded and unloaded twice$' plugin_host "$url"
run 0 '^Hello A"da, welcome to the "library"\.$' c_host "$url" 'A"da'
run 0 '^withdrawn$' c_host "$url" Ada

# In C#, by mono; the run-time system can't load a library with a sanitizer.
if [[ -n "${4:-}" ]] && command -v mcs >/dev/null; then
  mkdir "$examples/dotnet"
  mcs -warn:4 -warnaserror -out:"$examples/dotnet/dotnet.exe" \
    "$root/examples/dotnet/dotnet.cs" "$root/bindings/dotnet/Veltra.cs"
  library=$(find "$folder/prefix" -name libveltra.so -printf %h)
  cat >"$examples/dotnet/dotnet" <<END
#!/bin/sh
LD_LIBRARY_PATH='$library' exec mono "\$0.exe" "\$@"
END
  chmod +x "$examples/dotnet/dotnet"
  run 0 '^Hello Ada "Enchantress" King, welcome to the library\.$' dotnet "$url"
  run 2 '^usage: ' dotnet
  secret=wrong run 1 '^Refused: .*403001$' dotnet "$url"
else
  echo 'no compiler for C#: dotnet was not built'
fi

if [[ -n "${4:-}" ]]; then  # an interpreter can't load a library that needs a sanitizer
  export PYTHONPATH=$root/bindings/python PYTHONDONTWRITEBYTECODE=1
  VELTRA_LIBRARY=$(find "$folder/prefix" -name 'libveltra.so.?')
  export VELTRA_LIBRARY
  run 0 '^Hello Dorothy, welcome to the team\.$' python "$url"
  run 2 '^usage: ' python
  secret=wrong run 1 '^Refused: .*403001: ' python "$url"
fi

run 2 '^usage: ' feedback "$url" 'as shown' "$folder/text"
for name in quickstart many_threads cancel_button feedback plugin_host own_logger c_host; do run 2 '^usage: ' "$name"; done
secret=wrong
run 1 '^login: Refused: ' c_host "$url" Ada
run 1 'get token failed,not get token' quickstart "$url"
run 1 '^\[error\] .*Veltra: a login was refused \(answer left out\)$' own_logger "$url"
[[ $status == 0 ]]

#!/usr/bin/env bash
# The C# binding is compiled without a warning and does what its test program wants, against local
# gateways over HTTPS:
#     check_dotnet.sh SOURCE-ROOT LIBRARY GATEWAY-PROGRAM FOLDER
set -euo pipefail

root=$1 library=$2 gateway_program=$3 folder=$4
if ! command -v mcs >/dev/null || ! command -v mono >/dev/null; then echo 'no mcs or no mono'; exit 77; fi

gateways=()
clean_up() {
  kill "${gateways[@]}" 2>/dev/null || true
  rm -rf "$folder"
}
trap clean_up EXIT
rm -rf "$folder"
mkdir -p "$folder"

start() { # NAME OPTION...
  "$gateway_program" --tls --ca-out "$folder/$1.pem" --key 'app":s3cret"' --ready-file "$folder/$1" \
    "${@:2}" >/dev/null &
  gateways+=($!)
}
start quick
start slow --fault on=query,kind=delay,number=1000 --fault on=feedback,kind=refuse,code=1,text=no

mcs -warn:4 -warnaserror -doc:"$folder/Veltra.xml" -out:"$folder/DotnetTest.exe" \
  "$root/bindings/dotnet/Veltra.cs" "$root/tests/bindings/DotnetTest.cs"
# Hosts of the package without development files have this file.
cat >"$folder/DotnetTest.exe.config" <<'END'
<configuration><dllmap dll="veltra" target="libveltra.so.1" os="!windows"/></configuration>
END
for ((i = 0; i < 200; ++i)); do
  if [[ -e "$folder/quick" && -e "$folder/slow" ]]; then break; fi
  sleep 0.05
done
LD_LIBRARY_PATH=$(dirname "$library") TZ=UTC timeout 60 mono --debug "$folder/DotnetTest.exe" \
  "$(<"$folder/quick")" "$folder/quick.pem" "$(<"$folder/slow")" "$folder/slow.pem"

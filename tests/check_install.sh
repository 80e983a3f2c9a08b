#!/usr/bin/env bash
# A host of its own is built against the installed tree and runs against the local gateway:
#     check_install.sh BUILD-FOLDER SOURCE-ROOT GATEWAY-PROGRAM COMPILER
set -euo pipefail

folder=$(mktemp -d)
gateway=
clean_up() {
  if [ -n "$gateway" ]; then kill "$gateway"; wait "$gateway" || true; fi
  rm -rf "$folder"
}
trap clean_up EXIT

cmake --install "$1" --prefix "$folder/prefix" >/dev/null
cmake -S "$2/examples/quickstart" -B "$folder/build" -G Ninja -DCMAKE_CXX_COMPILER="$4" \
  -DCMAKE_PREFIX_PATH="$folder/prefix" >/dev/null
cmake --build "$folder/build" >/dev/null

"$3" --key demo:secret --ready-file "$folder/url" >/dev/null &
gateway=$!
for ((i = 0; i < 200; ++i)); do
  if [ -e "$folder/url" ]; then break; fi
  sleep 0.05
done
answer=$(VELTRA_APP_KEY=demo VELTRA_SECRET_KEY=secret "$folder/build/quickstart" "$(<"$folder/url")")
[ "$answer" = 'Hello Ada, welcome to the library.' ] || { echo "got: $answer"; exit 1; }

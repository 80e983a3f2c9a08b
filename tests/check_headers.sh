#!/usr/bin/env bash
# Public headers compile alone, as C++11 with the first compiler and as C++20 with the last, and together,
# in any order, as everything from C++11 to C++20 with each; with every warning on and with macros that
# hosts are known to define:
#     check_headers.sh SOURCE-ROOT COMPILER...
set -euo pipefail

root=$1
flags=(-fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror
       "-I$root/include" "-I$root/platform/include")
headers=(Oak/Base/Export.h Oak/Net/HttpClientOptions.h qlog/qlog.h)
for header in "$root"/include/Veltra/*.h; do headers+=("Veltra/${header##*/}"); done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

forward='' backward=''
for header in "${headers[@]}"; do
  line="#include <$header>"$'\n'
  echo "$line" >"$folder/${header//\//_}.cpp"
  forward+=$line backward=$line$backward
done
# Standard headers first, so that the macros meet ours alone.
hostile="$(printf '#include <%s>\n' cstdint functional map memory string unordered_set vector)
#define min(a, b) hostile
#define max(a, b) hostile
#define small char
"
echo "$hostile$forward" >"$folder/forward.cpp"
echo "$hostile$backward" >"$folder/backward.cpp"

export flags_text="${flags[*]}"
for compiler in "${@:2}"; do
  for standard in c++11 c++14 c++17 c++20; do
    sources=("$folder"/{forward,backward}.cpp)
    case $compiler,$standard in
      "$2,c++11" | "${*: -1},c++20") sources=("$folder"/*.cpp) ;;
    esac
    for source in "${sources[@]}"; do printf '%s\0' "$compiler" "-std=$standard" "$source"; done
  done
done | xargs -0 -n 3 -P 2 bash -c '"$1" "$2" $flags_text "$3"' compile

for header in qlog/qlog.h Veltra/veltra_c.h; do
  printf '#include <%s>\n' "$header" | "$2" -x c -std=c99 "-I$root/platform/include" "-I$root/include" \
    -Wall -Wextra -Wpedantic -Werror -fsyntax-only -
done

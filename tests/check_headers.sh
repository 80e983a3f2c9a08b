#!/usr/bin/env bash
# Public headers compile alone, together and in any order, as C++11 and later, with every warning
# on and with macros that hosts are known to define:
#     check_headers.sh COMPILER SOURCE-ROOT
set -euo pipefail

compiler=$1
root=$2
flags=(-fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror
       "-Dmin(a,b)=hostile" "-Dmax(a,b)=hostile" -Dsmall=char
       "-I$root/include" "-I$root/platform/include")
headers=(Oak/Net/HttpClientOptions.h qlog/qlog.h)
for header in "$root"/include/Veltra/*.h; do headers+=("Veltra/${header##*/}"); done

# Standard headers first, so that the macros meet ours alone.
standard='#include <cstdint>\n#include <functional>\n#include <map>\n#include <memory>\n'
standard+='#include <string>\n#include <unordered_set>\n#include <vector>\n'
compile() {  # LANGUAGE-STANDARD INCLUDES
  printf '%b' "#undef min\n#undef max\n$standard#define min hostile\n#define max hostile\n$2" |
    "$compiler" -x c++ "-std=$1" "${flags[@]}" -
}

forward=''
backward=''
for header in "${headers[@]}"; do
  forward+="#include <$header>\n"
  backward="#include <$header>\n$backward"
  printf '#include <%s>\n' "$header" | "$compiler" -x c++ -std=c++11 "${flags[@]:0:7}" \
    "-I$root/include" "-I$root/platform/include" -
done
for standard_name in c++11 c++14 c++17 c++20; do
  compile "$standard_name" "$forward"
  compile "$standard_name" "$backward"
done
printf '#include <qlog/qlog.h>\n' | "$compiler" -x c -std=c99 "-I$root/platform/include" \
  -Wall -Wextra -Wpedantic -Werror -fsyntax-only -

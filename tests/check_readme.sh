#!/usr/bin/env bash
# The host code in README.md compiles as it stands:
#     check_readme.sh COMPILER SOURCE-ROOT
set -euo pipefail

sed -n '/^```cpp$/,/^```$/p' "$2/README.md" | grep -v '^```' |
  "$1" -x c++ -std=c++11 -fsyntax-only -Wall -Wextra -Wpedantic -Werror \
    "-I$2/include" "-I$2/platform/include" -

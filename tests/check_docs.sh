#!/usr/bin/env bash
# What the pages show is true: host code compiles as C++11, shell sessions give what they show, and
# links lead somewhere.
#
#     check_docs.sh COMPILER SOURCE-ROOT [PROGRAM-FOLDER...]
#
# A cpp block with an #include is compiled as it stands; the other cpp blocks of a page follow each
# other inside one function. A console block is run, if there are program folders: its lines after
# "$ " and "> " go to a shell, whose output must be its other lines. An sh block must parse. The
# lines of a cmake block stand in examples/quickstart. Blocks without a language are text. Each record
# of level 4 or 5 is explained.
set -euo pipefail

compiler=$1 root=$2 programs=$(IFS=: && echo "${*:3}")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
status=0
complain() {
  printf '%s: %s\n' "$page" "$*" >&2
  status=1
}

compile() {  # the program on standard input
  "$compiler" -x c++ "-std=$standard" -fsyntax-only -Wall -Wextra -Wpedantic -Werror \
    -Wno-unused-variable "-I$root/include" "-I$root/platform/include" "-I$root/tools" -
}

run_session() {
  mkdir "$1.run"
  { echo "trap 'kill \$(jobs -p) 2>/dev/null' EXIT"; sed -n 's/^[$>] //p' "$1"; } >"$1.commands"
  (cd "$1.run" && TZ=UTC PATH="$programs:$PATH" timeout 60 bash "$1.commands" >"$1.shown") || true
  diff <(sed '/^[$>] /d' "$1") "$1.shown" >&2
}

check_block() {
  case $1 in
    *.cpp) if grep -q '^#include' "$1"; then compile <"$1"; else cat "$1" >>"$folder/fragments"; fi ;;
    *.console) [[ -z "$programs" ]] || run_session "$1" ;;
    *.sh) bash -n "$1" ;;
    *.cmake) ! grep -vxF -f "$root/examples/quickstart/CMakeLists.txt" "$1" ;;
    *.text | *.json) ;;
    *) complain "nothing checks the language of ${1##*.}" ;;
  esac
}

anchors() { sed -n 's/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; y/ /-/'; }

check_link() {
  [[ "$1" != *://* ]] || return 0
  local file=$page
  if [[ -n "${1%%#*}" ]]; then file=$(dirname "$page")/${1%%#*}; fi
  [[ -e "$file" ]] || { complain "there is no $1"; return 0; }
  [[ "$1" != *'#'* ]] || anchors "$file" | grep -qxF "${1#*#}" || complain "no heading for $1"
}

for page in "$root"/{README,CONTRIBUTING,CHANGELOG}.md "$root"/{docs,examples}/*.md; do
  standard=c++11 headers=('<Oak/Net/HttpClientOptions.h>' '<Veltra/Veltra.h>' '<qlog/qlog.h>')
  if [[ $page == */local-gateway.md ]]; then  # code of tests in the tree
    standard=c++20 headers=('<gateway/gateway.h>' '<gtest/gtest.h>')
  fi
  rm -rf "${folder:?}"/*
  awk -v folder="$folder" '/^```/ { name = name ? "" : folder "/" NR "." (substr($0, 4) ? substr($0, 4) : "text"); next }
                           name { print >name }' "$page"
  for block in "$folder"/*.*; do
    [[ ! -e $block ]] || check_block "$block" || complain "the block at line $(basename "${block%.*}")"
  done
  if [[ -e "$folder/fragments" ]]; then
    { printf '#include %s\n' "${headers[@]}"; echo 'void Example() {'; cat "$folder/fragments"; echo '}'; } |
      compile || complain 'the cpp blocks without #include'
  fi
  while read -r script; do
    [[ -x "$root/$script" ]] || complain "there is no $script"
  done < <(grep -oE '\b(scripts|tests|\.ci)/[a-z_-]+(\.sh)?\b' "$page" | grep -E '^s|^\.|sh$' | sort -u)
  while read -r link; do check_link "$link"; done < <(sed '/^```/,/^```/d' "$page" |
    grep -oE '\]\([^) ]+\)' | sed 's/^](//; s/)$//')
done

# Of a record, what stands before its first value.
page=$root/docs/errors.md
while read -r text; do
  grep -qF "\`${text%[=: ]}" "$page" || complain "nothing on the record '$text'"
done < <(cat "$root"/src/*.cpp | tr '\n' ' ' |
  grep -oE 'VELTRA_LOG\([a-z.]+, +[45], +"[^"%]*' | sed 's/.*"//' | sort -u)
exit $status

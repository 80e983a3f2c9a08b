#!/usr/bin/env bash
# The source tree inside a host's own, by add_subdirectory and by FetchContent, whatever that host has
# set for itself: the library and nothing else is built, and the host keeps its own warnings.
#     check_subproject.sh SOURCE-ROOT COMPILER LIBRARY
# The library isn't compiled again: a host is linked by the build's own command to the one of this
# build.
set -euo pipefail

source=$1 compiler=$2 library=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() { printf '%s\n' "$*" >&2; exit 1; }
quietly() { "$@" >"$folder/log" 2>&1 || { cat "$folder/log" >&2; fail "failed: $*"; }; }

mkdir "$folder/host"
cat >"$folder/host/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.22)
project(host LANGUAGES CXX)
set(BUILD_SHARED_LIBS OFF)
if(FETCH)
  include(FetchContent)
  FetchContent_Declare(veltra SOURCE_DIR ${SOURCE})
  FetchContent_MakeAvailable(veltra)
else()
  add_subdirectory(${SOURCE} veltra)
endif()
add_executable(host host.cpp)
target_link_libraries(host PRIVATE Veltra::Veltra)
CMAKE
cat >"$folder/host/host.cpp" <<'CPP'
#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>
#include <qlog/qlog.h>

int main() {
    Oak::Net::SetHttpClientOptions({});
    qlog_set_handler(nullptr, nullptr, 4);
    std::string result;
    return Veltra::ConvertTime("-1d08:30", result, 1700000000, true) && !result.empty() ? 0 : 1;
}
CPP

check_way() { # FETCH STANDARD FOLDER-OF-THE-LIBRARY
  local build=$folder/build-$2
  quietly cmake -S "$folder/host" -B "$build" -G Ninja "-DCMAKE_CXX_COMPILER=$compiler" \
    "-DSOURCE=$source" "-DFETCH=$1" "-DCMAKE_CXX_STANDARD=$2" -DCMAKE_CXX_STANDARD_REQUIRED=ON
  local commands linked
  commands=$(ninja -C "$build" -t commands all | grep -v '^ninja: ')
  linked=$(grep -oE -- '-o [^ ]+' <<<"$commands" | cut -d' ' -f2 | grep -v '\.o$' | grep -vxF host)
  [[ $linked == "$3/src/$(basename "$library")" ]] || fail "built beside the library: $linked"
  if grep -E -- ' -o [^ ]*(platform|src)/[^ ]*\.o ' <<<"$commands" | grep -vF -- '-std=c++20'; then
    fail 'the host set the language of the library'
  fi
  local compiled
  compiled=$(grep -F -- ' -c ' <<<"$commands" | grep -F host.cpp)
  [[ $compiled == *"-std=gnu++$2 "* ]] || fail "the library set the language of the host: $compiled"
  if grep -oE -- ' -(W|f|pedantic)[^ ]*' <<<"$compiled"; then fail 'the host inherited these'; fi
  cp -P "$(dirname "$library")/libveltra.so"* "$build/$3/src/"
  (cd "$build" && quietly bash -c "$compiled") || fail 'the host does not compile'
  (cd "$build" && quietly bash -c "$(ninja -t commands host | tail -n 1)") || fail 'the host does not link'
  "$build/host" || fail 'the host does not run'
  quietly cmake --install "$build" --prefix "$folder/prefix"
  [[ ! -e "$folder/prefix" ]] || fail "the host's installation brings: $(ls -R "$folder/prefix")"
}
check_way OFF 11 veltra
check_way ON 14 _deps/veltra-build

# shellcheck shell=bash
# What the scripts share. Source it; it runs nothing by itself.

# Debian packages that the library and its programs are built from.
# shellcheck disable=SC2034  # used by the scripts that source this
build_packages=(
  g++ cmake ninja-build pkg-config
  libboost-dev libboost-thread-dev libssl-dev libcurl4-openssl-dev
  rapidjson-dev libcli11-dev libcpp-httplib-dev
  ca-certificates
)

# What scripts/test needs beyond that.
# shellcheck disable=SC2034
test_packages=(gcc libgtest-dev binutils faketime mono-mcs mono-runtime python3)

# What scripts/check needs beyond both.
# shellcheck disable=SC2034
check_packages=(
  clang clang-format clang-tidy libclang-rt-14-dev libbenchmark-dev git
  cppcheck shellcheck valgrind gdb
  abigail-tools chromium chromium-driver curl doxygen dpkg-dev file libspdlog-dev
  mypy flake8 python3-build python3-setuptools python3-wheel
)

# What the benchmarks need beyond the first list: their library, and what makes table and plots.
# shellcheck disable=SC2034
bench_packages=(libbenchmark-dev python3)

# What the build for Windows needs: compiler, dependencies, and wine to run what it makes.
# shellcheck disable=SC2034
windows_packages=(
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-win32 wine64 cmake ninja-build pkg-config
  libboost-dev rapidjson-dev libcli11-dev googletest dpkg-dev make perl openssl
  ca-certificates
)

# For builds that are made once and whole: all sources of a target at once, since nearly all of the time
# goes into the headers of the libraries that they include.
# shellcheck disable=SC2034
in_batches=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0)

say() { printf '%s\n' "$*" >&2; }

die() {
  say "$*"
  exit 1
}

is_installed() {
  [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# install_missing PACKAGE...: installs with apt those that are missing; asks nothing.
install_missing() {
  local package
  local -a missing=()
  command -v dpkg-query >/dev/null || die "this script needs Debian; install by hand: $*"
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  local -a as_root=()
  if [[ "$(id -u)" != 0 ]]; then
    command -v sudo >/dev/null || die "needs root or sudo to install ${missing[*]}"
    as_root=(sudo)
  fi
  say "installing ${missing[*]}"
  run_quietly "${as_root[@]}" apt-get update
  run_quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install --yes --no-install-recommends "${missing[@]}"
}

# run_quietly COMMAND...: shows the command's output only when it fails, and ends the script then.
run_quietly() {
  local log status=0
  log="$(mktemp)"
  "$@" >"$log" 2>&1 || status=$?
  if ((status != 0)); then
    cat "$log" >&2
    rm -f "$log"
    die "failed with status $status: $*"
  fi
  rm -f "$log"
}

# build_programs PRESET FOLDER: builds veltra and its local gateway, and nothing else, in that folder.
# Called at the root of the tree, as what follows.
build_programs() {
  say "building into $2"
  run_quietly cmake --preset "$1" -B "$2" -DVELTRA_BUILD_TESTS=OFF -DVELTRA_BUILD_EXAMPLES=OFF \
    -DVELTRA_BUILD_BENCH=OFF
  run_quietly cmake --build "$2" --target veltra_program veltra-gateway
}

# What the gateway of a demo is started with besides.
gateway_options=()

# run_demo FOLDER [COMMAND...]: starts the gateway that was built in the folder and runs "veltra demo"
# against it, under the command if there is one. Once a script: how it ends is the script's end.
run_demo() {
  local build="$1" folder
  shift
  gateway_pid=
  folder="$(mktemp -d)"
  # shellcheck disable=SC2064  # the folder of now
  trap "end_demo '$folder'" EXIT
  # A signal ends the script, and the way out is the one above.
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
  write_keys "$folder"
  start_gateway "$build" "$folder"
  "$@" "$build/tools/veltra/veltra" demo --gateway "$(<"$folder/url")" \
    --ca-file "$folder/ca.pem" --credentials "$folder/credentials.json"
}

# A pair of keys for this run alone, told to both programs in files that nobody else can read.
write_keys() { # FOLDER
  local secret
  secret="$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')"
  (
    umask 077
    printf 'demo-app:%s\n' "$secret" >"$1/keys"
    printf '{"keys":[{"appKey":"demo-app","secretKey":"%s"}],"productVersion":"1.0.0"}\n' \
      "$secret" >"$1/credentials.json"
  )
}

start_gateway() { # BUILD FOLDER
  "$1/tools/gateway/veltra-gateway" --tls --ca-out "$2/ca.pem" --keys-file "$2/keys" \
    --ready-file "$2/url" "${gateway_options[@]}" >"$2/gateway.log" 2>&1 &
  gateway_pid=$!
  local tries
  for ((tries = 0; tries < 300; ++tries)); do
    [[ -e "$2/url" ]] && return
    kill -0 "$gateway_pid" 2>/dev/null || break
    sleep 0.1
  done
  cat "$2/gateway.log" >&2
  die "the local gateway did not start"
}

end_demo() { # FOLDER
  if [[ -n "$gateway_pid" ]]; then
    kill "$gateway_pid" 2>/dev/null || true
    wait "$gateway_pid" 2>/dev/null || true
  fi
  rm -rf "$1"
}

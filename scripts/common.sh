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

# What the whole check needs beyond that.
# shellcheck disable=SC2034
test_packages=(
  gcc clang clang-format clang-tidy libclang-rt-14-dev libgtest-dev binutils git
)

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

#!/usr/bin/env bash
# The Debian packages hold what they should and depend on what they need, and hosts are built against
# them, as against any installed tree:
#     check_packages.sh BUILD-FOLDER SOURCE-ROOT COMPILER
set -euo pipefail

build=$1 source=$2 compiler=$3
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$build/CMakeCache.txt")
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:[A-Z]*=//p' "$build/CMakeCache.txt")
major=${version%%.*}
folder=$(mktemp -d)
root=$folder/root
gateway=
clean_up() {
  if [ -n "$gateway" ]; then kill "$gateway"; wait "$gateway" || true; fi
  rm -rf "$folder"
}
trap clean_up EXIT
fail() { printf '%s\n' "$*" >&2; exit 1; }
quietly() { "$@" >"$folder/log" 2>&1 || { cat "$folder/log" >&2; fail "failed: $*"; }; }

# --- what is in them --------------------------------------------------------------------------------

quietly cpack --config "$build/CPackConfig.cmake" -B "$folder/packages"
arch=$(dpkg --print-architecture)
runtime=$folder/packages/libveltra${major}_${version}_$arch.deb
development=$folder/packages/libveltra-dev_${version}_$arch.deb
tools=$folder/packages/veltra-tools_${version}_$arch.deb
python=$folder/packages/python3-veltra_${version}_all.deb

# expect_files PACKAGE PATH...: these below /usr and no others, folders aside. With a licence each package
# has it as its copyright.
expect_files() {
  local name=${1##*/} expected=("${@:2}")
  if [ -e "$source/LICENSE" ]; then expected+=("share/doc/${name%%_*}/copyright"); fi
  diff <(printf './usr/%s\n' "${expected[@]}" | sort) \
    <(dpkg-deb --fsys-tarfile "$1" | tar -t | grep -v '/$' | sort) ||
    fail "the files of $1 (<: expected)"
}
expect_files "$runtime" "$libdir/libveltra.so."{"$major","$version"} \
  "share/doc/libveltra$major/CHANGELOG.md"
licence=()
if [ -e "$source/LICENSE" ]; then licence=(share/doc/Veltra/LICENSE); fi
mapfile -t pages < <(cd "$source" && find docs -name '*.md' -printf 'share/doc/libveltra-dev/%p\n' \
  -o -name '*.svg' -printf 'share/doc/libveltra-dev/%p\n')
expect_files "$development" "$libdir/libveltra.so" "$libdir/pkgconfig/veltra.pc" \
  "$libdir/cmake/Veltra/Veltra"{Config,ConfigVersion,Targets,Targets-release}.cmake \
  include/Veltra/{AiHelper,Base64,Call,Comment,Export,HumanMessage,JsonText,LLMSession,LicenseInfo}.h \
  include/Veltra/{PhraseKey,Service,TimeConversion,Types,Veltra,Version,veltra_c}.h \
  include/Oak/Base/Export.h include/Oak/Net/HttpClientOptions.h include/qlog/qlog.h \
  share/man/man3/veltra.3 share/doc/libveltra-dev/CHANGELOG.md "${licence[@]}" "${pages[@]}"
for program in veltra veltra-gateway; do
  programs+=("bin/$program" "share/man/man1/$program.1" "share/bash-completion/completions/$program"
    "share/zsh/vendor-completions/_$program" "share/fish/vendor_completions.d/$program.fish")
done
expect_files "$tools" "${programs[@]}" share/doc/veltra-tools/CHANGELOG.md
modules=({__init__,_calls,_exit,_native,_records,_version,errors,session}.py py.typed)
expect_files "$python" "${modules[@]/#/lib/python3/dist-packages/veltra/}" \
  "lib/python3/dist-packages/veltra-$version.dist-info/METADATA" \
  share/doc/python3-veltra/CHANGELOG.md

# expect_field PACKAGE FIELD TEXT...: the field names each text.
expect_field() {
  local shown text
  shown=$(dpkg-deb --field "$1" "$2")
  for text in "${@:3}"; do
    [[ ", $shown," == *", $text"* ]] || fail "$2 of $1 goes without \"$text\": $shown"
  done
}
expect_field "$runtime" Depends 'libboost-thread1.74.0 (>= ' 'libcurl4 (>= ' 'libssl3 (>= 3.0' \
  'libstdc++6 (>= ' 'libc6 (>= '
expect_field "$development" Depends "libveltra$major (= $version),"
expect_field "$tools" Depends "libveltra$major (>= $version)," 'libcpp-httplib0.11 (>= ' 'libssl3 (>= '
expect_field "$python" Depends "libveltra$major (>= $version)," 'python3 (>= 3.9)'
for package in "$runtime" "$development" "$tools" "$python"; do
  dpkg-deb --extract "$package" "$root"
done
quietly dpkg-deb --control "$runtime" "$folder/control"
[[ $(<"$folder/control/shlibs") == "libveltra $major libveltra$major (>= $version)" ]] ||
  fail "shlibs: $(<"$folder/control/shlibs")"
quietly dpkg-deb --control "$python" "$folder/python"
grep -q py3compile "$folder/python/postinst" || fail 'the modules are not compiled'
grep -q py3clean "$folder/python/prerm" || fail 'what Python compiled stays behind'
grep -q ldconfig "$folder/control/postinst" || fail 'the library is not made known to the loader'
for file in "$root/usr/bin/"* "$root/usr/$libdir/libveltra.so.$version"; do
  ! readelf --dynamic "$file" | grep -E 'RPATH|RUNPATH' || fail "a path of its own: $file"
  ! readelf --sections --wide "$file" | grep -F .debug_info || fail "not stripped: $file"
done
if grep -rlF -e "$build" -e "$source" "$root/usr/include" "$root/usr/$libdir" "$root/usr/bin"; then
  fail 'these show paths of the build'
fi

# --- hosts against the packages' tree, moved from where it was meant for ----------------------------

quietly cmake -S "$source/examples/quickstart" -B "$folder/build" -G Ninja \
  "-DCMAKE_CXX_COMPILER=$compiler" "-DCMAKE_PREFIX_PATH=$root/usr"
grep -qF "Veltra_DIR:PATH=$root/" "$folder/build/CMakeCache.txt" || fail 'CMake found another Veltra'
quietly cmake --build "$folder/build"
read -ra flags < <(PKG_CONFIG_PATH="$root/usr/$libdir/pkgconfig" pkg-config --cflags --libs veltra)
quietly "$compiler" -std=c++11 -o "$folder/by-pkg-config" \
  "$source/examples/quickstart/quickstart.cpp" "${flags[@]}"
sysroot=$(PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR="$root/usr/$libdir/pkgconfig" \
  pkg-config --cflags --libs veltra)
[[ " $sysroot" != *"$root$root"* ]] || fail "the folder stands twice: $sysroot"

# A tree in a prefix of one's own: its programs find their library without help.
quietly cmake --install "$build" --prefix "$folder/prefix" --strip
mv "$folder/prefix" "$folder/moved"
[[ $("$folder/moved/bin/veltra" --version) == *"$version"* ]] || fail "veltra --version"

export LD_LIBRARY_PATH=$root/usr/$libdir
"$root/usr/bin/veltra-gateway" --key demo:secret --ready-file "$folder/url" >/dev/null &
gateway=$!
for ((i = 0; i < 200; ++i)); do
  if [ -e "$folder/url" ]; then break; fi
  sleep 0.05
done
export VELTRA_APP_KEY=demo VELTRA_SECRET_KEY=secret
url=$(<"$folder/url")
greeting='Hello Ada, welcome to the library.'
for host in "$folder/build/quickstart" "$folder/by-pkg-config"; do
  [[ $("$host" "$url") == "$greeting" ]] || fail "$host got no answer"
done
[[ $("$root/usr/bin/veltra" query greeting name=Ada 'place=the library' --domain "$url") == "$greeting" ]] ||
  fail 'veltra got no answer'

# --- the wheel and the sdist -------------------------------------------------------------------------

# With Debian's tools, on a copy: they write beside what they read.
mkdir "$folder/sources"
cp -r "$source/bindings/python/"{README.md,pyproject.toml,veltra} "$folder/sources"
rm -rf "$folder/sources/veltra/__pycache__"
quietly /usr/bin/python3 -m build --no-isolation --outdir "$folder/dist" "$folder/sources"
diff <(printf '%s\n' "${modules[@]/#/veltra/}" | sort) \
  <(python3 -m zipfile -l "$folder/dist/veltra-$version-py3-none-any.whl" |
    sed -n 's/^\(veltra\/[^ ]*\) .*/\1/p' | sort) ||
  fail 'the files of the wheel (<: expected)'
mkdir "$folder/sdist"
tar -xzf "$folder/dist/veltra-$version.tar.gz" -C "$folder/sdist" --strip-components=1
diff -r -x '*.egg-info' -x setup.cfg -x PKG-INFO "$folder/sources" "$folder/sdist" || fail 'the sdist'

# ask_from FOLDER: in it, Python finds the package, and the package the library.
ask_from() {
  [[ $(env -u VELTRA_LIBRARY PYTHONPATH="$1" /usr/bin/python3 -B "$source/examples/python/ask.py" "$url") == *"$greeting"* ]] ||
    fail "the package in $1 got no answer"
}
ask_from "$root/usr/lib/python3/dist-packages"
quietly /usr/bin/python3 -m zipfile -e "$folder/dist/veltra-$version-py3-none-any.whl" "$folder/wheel"
unset LD_LIBRARY_PATH
cp "$root/usr/$libdir/libveltra.so.$major" "$folder/wheel/veltra"
ask_from "$folder/wheel"

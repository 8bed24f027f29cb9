#!/usr/bin/env bash
# The installed broker as a user meets it. Installs a build into a scratch
# prefix and checks it: the versions, the soname, no file that points into
# the source or build tree, broker headers that a user's generated orb.h
# cannot hide. Builds the installed copy of examples/echo with CMake and
# again by hand with pkg-config, runs the installed vex beside omniNames, and
# lets each echo_client activate its echo_server through it. Then makes the
# .deb packages and, as root, installs them, opens the man pages, verifies
# the systemd unit, and removes them, checking that nothing of theirs is
# left. Started processes are stopped by pid and installed packages purged
# on every way out.
#   bash tools/package_test.sh <build-dir>      (run by tools/test.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=$(cd "$1" && pwd)
source tools/naming.sh

work=$(mktemp -d /tmp/kelvanor-package.XXXXXX)
prefix=$work/prefix
pids=()
installed=()
cleanup() {
  stop_started
  if [ ${#installed[@]} -gt 0 ]; then
    dpkg --purge "${installed[@]}" >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "package test: $*" >&2; exit 1; }
step() { echo "== package: $*"; }

step "install into a scratch prefix"
cmake --install "$build" --prefix "$prefix" --strip >/dev/null
version=$(sed -n 's/^project(Kelvanor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
pc=$(find "$prefix" -name kelvanor.pc)
[ -n "$pc" ] || fail "no kelvanor.pc"
libdir=$(dirname "$(dirname "$pc")")
for check in "vex -V" "vexctl --version" "dsquery --version" "kelvanor-idl --version"; do
  # shellcheck disable=SC2086  # program and option
  out=$("$prefix/bin/"$check 2>&1) || true
  [ "$out" = "${check%% *} (Kelvanor) $version" ] || fail "$check printed '$out'"
done
grep -qx "Version: $version" "$pc" || fail "kelvanor.pc has another version"
grep -q "PACKAGE_VERSION \"$version\"" "$libdir/cmake/Kelvanor/KelvanorConfigVersion.cmake" ||
  fail "the CMake package has another version"
if [ -e "$libdir/libkelvanor_orb.so" ]; then
  soname=$(readelf -d "$libdir/libkelvanor_orb.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
  [ "$soname" = "libkelvanor_orb.so.${version%%.*}" ] || fail "soname '$soname'"
fi
# Debug information names the sources it came from, and --strip leaves it
# in static libraries: an object file is searched without it.
leaks=$(find "$prefix" -type f | while read -r f; do
  strip -g -o "$work/searched" "$f" 2>/dev/null || cp "$f" "$work/searched"
  grep -qF -e "$root" -e "$build" "$work/searched" && echo "$f"
done || true)
[ -z "$leaks" ] || fail "installed files that name the source or build tree: $leaks"

step "broker headers that user IDL named orb, corba, object, any cannot hide"
quoted=$(grep -l '^#include "' "$prefix/include/kelvanor/"*.h || true)
[ -z "$quoted" ] || fail "installed headers with quoted includes: $quoted"
decoys=$work/decoys
mkdir "$decoys"
for name in orb corba object any; do
  echo "module User_$name { interface I { long f(); }; };" > "$decoys/$name.idl"
done
"$prefix/bin/kelvanor-idl" -o "$decoys" "$decoys"/*.idl
for header in "$prefix/include/kelvanor/"*.h; do
  name=$(basename "$header")
  [ -e "$decoys/$name" ] || echo "#error \"a user's $name was read for the broker's\"" > "$decoys/$name"
  echo "#include <kelvanor/$name>"
done > "$decoys/all.cc"
for name in orb corba object any; do echo "#include \"$name.h\""; done >> "$decoys/all.cc"
c++ -std=c++17 -fsyntax-only -I"$decoys" -I"$prefix/include" "$decoys/all.cc"

step "examples/echo out of tree, with CMake and with pkg-config"
example=$prefix/share/kelvanor/examples/echo
cmake -S "$example" -B "$work/echo-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
grep -q "^Kelvanor_DIR:PATH=$libdir/cmake/Kelvanor\$" "$work/echo-cmake/CMakeCache.txt" ||
  fail "CMake found another Kelvanor"
cmake --build "$work/echo-cmake" >/dev/null
export PKG_CONFIG_PATH=$libdir/pkgconfig
bypc=$work/echo-pc
"$(pkg-config --variable=kelvanor_idl kelvanor)" -o "$bypc" "$example/echo.idl"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 $(pkg-config --cflags kelvanor) -I"$bypc" -c "$bypc/echo.cc" -o "$bypc/echo.o"
for prog in echo_server echo_client; do
  # shellcheck disable=SC2046
  c++ -std=c++17 $(pkg-config --cflags kelvanor) -I"$bypc" "$example/$prog.cc" "$bypc/echo.o" \
    -o "$bypc/$prog" $(pkg-config --libs kelvanor) -Wl,-rpath,"$(pkg-config --variable=libdir kelvanor)"
done

step "the installed vex activates both echo servers"
start_naming "$work" || fail "no naming service"
mkdir "$work/impl_dir"
export KELVANOR_IMPL_PATH=$work/impl_dir
(cd "$work" && exec "$prefix/bin/vex" -OAipaddr 127.0.0.1) >"$work/vex.out" 2>&1 &
pids+=($!)
wait_for "$work/vex.out" 'naming service' || fail "vex did not start: $(cat "$work/vex.out")"
grep -q 'VEX registered with naming service' "$work/vex.out" || fail "$(cat "$work/vex.out")"
"$prefix/bin/vexctl" reg Demo::Echo cmake "$work/echo-cmake/echo_server" --arg=-OAipaddr --arg=127.0.0.1
"$prefix/bin/vexctl" reg Demo::Echo pc "$bypc/echo_server" --arg=-OAipaddr --arg=127.0.0.1
for name in cmake pc; do
  client=$work/echo-cmake/echo_client
  [ "$name" = pc ] && client=$bypc/echo_client
  out=$(timeout 30 "$client" --name "$name" "through $name" 2>&1) || true
  # The servers outlive the daemon by design: stop them by their pids.
  for p in $("$prefix/bin/vexctl" status Demo::Echo "$name" | awk 'NR > 1 && $5 ~ /^[0-9]+$/ {print $5}'); do
    pids+=("$p")
  done
  grep -qx "say: through $name" <<<"$out" || fail "echo_client --name $name: $out"
done
stop_started

step "the .deb packages"
(cd "$build" && cpack -G DEB -B "$work/deb") >"$work/cpack.out" 2>&1 ||
  fail "cpack: $(cat "$work/cpack.out")"
runtime=$(ls "$work/deb"/kelvanor_*.deb)
dev=$(ls "$work/deb"/kelvanor-dev_*.deb)
runtime_deps=$(dpkg-deb -f "$runtime" Depends)
dev_deps=$(dpkg-deb -f "$dev" Depends)
grep -q 'libc6' <<<"$runtime_deps" && grep -q 'libstdc++6' <<<"$runtime_deps" ||
  fail "kelvanor depends on '$runtime_deps'"
! grep -q omniidl <<<"$runtime_deps" || fail "kelvanor needs no omniidl"
grep -q omniidl <<<"$dev_deps" && grep -q "kelvanor (= $version)" <<<"$dev_deps" ||
  fail "kelvanor-dev depends on '$dev_deps'"
if [ "$(id -u)" -ne 0 ]; then
  echo "package test: skipped installing the packages: dpkg -i needs root"
  exit 0
fi
for pkg in kelvanor kelvanor-dev; do
  ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'ok installed' ||
    fail "$pkg is installed on this machine already: remove it first"
done
installed=(kelvanor-dev kelvanor)
dpkg -i "$runtime" "$dev" >/dev/null
files=$(dpkg -L kelvanor kelvanor-dev | sort -u)
[ "$(/usr/bin/vex -V)" = "vex (Kelvanor) $version" ] || fail "the packaged vex does not run"
# A machine whose dpkg leaves out /usr/share/man (path-exclude, as slim
# images have it) gets the pages opened from the packages themselves.
dpkg-deb -x "$runtime" "$work/contents"
dpkg-deb -x "$dev" "$work/contents"
for page in man8/vex.8 man1/vexctl.1 man1/dsquery.1 man1/kelvanor-iordump.1 man1/kelvanor-idl.1; do
  file=$(grep "/$page" <<<"$files" | head -1)
  [ -n "$file" ] || fail "no man page $page"
  [ -e "$file" ] || file=$work/contents$file
  text=$(man --warnings -l "$file" 2>"$work/man.err") || fail "man -l $file"
  [ -n "$text" ] && [ ! -s "$work/man.err" ] || fail "man -l $file: $(cat "$work/man.err")"
done
if command -v systemd-analyze >/dev/null; then
  systemd-analyze verify /usr/lib/systemd/system/kelvanor-vex.service ||
    fail "systemd-analyze verify kelvanor-vex.service"
else
  echo "package test: skipped systemd-analyze verify: systemd is not installed here"
fi
# Removal keeps the settings, a conffile, until a purge.
dpkg -r kelvanor-dev kelvanor >/dev/null
left=$(while read -r f; do [ -e "$f" ] && [ ! -d "$f" ] && echo "$f"; done <<<"$files" || true)
[ "$left" = /etc/default/kelvanor-vex ] || fail "dpkg -r left: $left"
dpkg --purge kelvanor >/dev/null
installed=()
left=$(while read -r f; do
  [ -e "$f" ] && { [ ! -d "$f" ] || grep -qi kelvanor <<<"$f"; } && echo "$f"
done <<<"$files" || true)
[ -z "$left" ] || fail "dpkg --purge left: $left"
echo "package test: passed"

#!/usr/bin/env bash
# Builds Kelvanor and runs the activation daemon beside a real naming service:
# omniNames on 127.0.0.1 (GIOP 1.0 references), its root context's IOR in the
# file where vex looks for it, and vex in verbose mode on a fresh repository.
# Then the echo example: echo_server publishes its object's reference, and
# echo_client calls it through the generated-style stub.
# Every process started here is stopped again by PID, also on failure.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash tools/deps.sh
build=${KELVANOR_BUILD:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target vex iordump echo_server echo_client

work=$(mktemp -d)
ns_pid=""
echo_pid=""
cleanup() {
  for p in $ns_pid $echo_pid; do kill "$p" 2>/dev/null && wait "$p" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT

port=$(( 20000 + RANDOM % 20000 ))
mkdir -p "$work/ns" "$work/impl_dir" "$work/web/wai/NameService"
omniNames -start "$port" -logdir "$work/ns" -ORBendPoint "giop:tcp:127.0.0.1:$port" \
  -ORBmaxGIOPVersion 1.0 >"$work/ns.out" 2>&1 &
ns_pid=$!
for _ in $(seq 100); do
  grep -q 'Root context is IOR:' "$work/ns.out" && break
  sleep 0.1
done
ior=$(grep -o 'IOR:[0-9a-f]*' "$work/ns.out" | head -1)
[ -n "$ior" ] || { echo "demo: omniNames did not start" >&2; cat "$work/ns.out" >&2; exit 1; }
echo "demo: naming service on 127.0.0.1:$port"
echo "$ior" > "$work/web/wai/NameService/demo.IOR"

echo "demo: the naming service's root context, as iordump reads it:"
"$root/$build/iordump" "$ior" | sed 's/^/  /'

# A repository with one registration, written in the file's own layout:
# 4-byte little-endian counts and lengths, strings without terminator.
u32() { printf "$(printf '\\%03o\\%03o\\%03o\\%03o' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)))"; }
str() { u32 ${#1}; printf '%s' "$1"; }
{
  u32 1                                   # entries
  str "Demo::Clock"; str "wall"           # interface and object name
  u32 0                                   # reference data: no octets
  str "/bin/date"; u32 0                  # program, SHARED_SERVER
  u32 1; str "--utc"                      # arguments
  u32 0                                   # environment: inherit
} > "$work/impl_dir/impl_rep"

echo "demo: starting vex -v"
set +e
(cd "$work" && NS_SERVER_ROOT="$work/web" NS_SERVER_ID=demo KELVANOR_IMPL_PATH="$work/impl_dir" \
  timeout 20 "$root/$build/vex" -OAipaddr 127.0.0.1 -v)
status=$?
set -e
echo "demo: vex ended with status $status"

echo "demo: starting echo_server on 127.0.0.1"
"$root/$build/echo_server" -OAipaddr 127.0.0.1 -o "$work/echo.ior" >"$work/echo.out" 2>&1 &
echo_pid=$!
for _ in $(seq 100); do
  [ -s "$work/echo.ior" ] && break
  sleep 0.1
done
[ -s "$work/echo.ior" ] || { echo "demo: echo_server did not start" >&2; cat "$work/echo.out" >&2; exit 1; }
echo "demo: its reference, as iordump reads it:"
"$root/$build/iordump" "$(cat "$work/echo.ior")" | sed 's/^/  /'
echo "demo: echo_client calls it"
timeout 20 "$root/$build/echo_client" "@$work/echo.ior" "hello from the demo" | sed 's/^/  /'

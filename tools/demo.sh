#!/usr/bin/env bash
# Builds Kelvanor and runs the activation daemon beside a real naming service:
# omniNames on 127.0.0.1 (with its defaults: IIOP 1.2 references), its root context's IOR in the
# file where vex looks for it, vex in verbose mode on a repository with one
# registration, a second registration made over IIOP with vexctl, and the
# naming service listing vex under "VEX". Then a client binds to the echo
# object by name, vex starts echo_server for it, and vexctl shows the process.
# Every process started here is stopped again by PID, also on failure.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash tools/deps.sh
build=${KELVANOR_BUILD:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target vex vexctl iordump echo_server echo_client
bin="$root/$build"

source tools/naming.sh
work=$(mktemp -d)
pids=()
cleanup() {
  stop_started
  rm -rf "$work"
}
trap cleanup EXIT

mkdir -p "$work/impl_dir"
start_naming "$work" || { echo "demo: no naming service" >&2; exit 1; }
ior=$naming_ior
echo "demo: naming service on 127.0.0.1:$naming_port; its root reference, as iordump reads it:"
"$bin/iordump" "$ior" | sed 's/^/  /'
export KELVANOR_IMPL_PATH="$work/impl_dir"

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
(cd "$work" && exec "$bin/vex" -OAipaddr 127.0.0.1 -v) >"$work/vex.out" 2>&1 &
pids+=($!)
wait_for "$work/vex.out" 'naming service' || true
sed 's/^/  /' "$work/vex.out"
grep -q 'VEX registered with naming service' "$work/vex.out" ||
  { echo "demo: vex did not register" >&2; exit 1; }

echo "demo: vexctl registers the echo server over IIOP and reads it back"
"$bin/vexctl" reg Demo::Echo echo "$bin/echo_server" --arg=-OAipaddr --arg=127.0.0.1
"$bin/vexctl" get Demo::Echo echo | sed 's/^/  /'
echo "demo: a second registration of the same pair is refused:"
"$bin/vexctl" reg Demo::Echo echo "$bin/echo_server" 2>&1 | sed 's/^/  /' || true

echo "demo: the naming service lists the daemon:"
nameclt -ORBInitRef "NameService=$ior" list | sed 's/^/  /'

echo "demo: echo_client binds to Demo::Echo \"echo\" by name; vex starts the server"
timeout 30 "$bin/echo_client" --name echo "hello through the daemon" | sed 's/^/  /'
echo "demo: vexctl status shows the process vex started:"
"$bin/vexctl" status | sed 's/^/  /'
# The server outlives the daemon by design: stop it here, by its pid.
server_pid=$("$bin/vexctl" status Demo::Echo echo | awk 'NR > 1 && $5 ~ /^[0-9]+$/ {print $5}')
for p in $server_pid; do pids+=("$p"); done
echo "demo: a second client reuses the running server (same pid):"
timeout 30 "$bin/echo_client" --name echo "hello again" | sed 's/^/  /'
echo "demo: the reference vex hands out, as iordump reads it:"
"$bin/iordump" "$("$bin/vexctl" lookup Demo::Echo echo)" | sed 's/^/  /'

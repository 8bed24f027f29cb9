#!/usr/bin/env bash
# Activation speed of the daemon: how long a lookup takes when vex has to
# start echo_server first (cold, with the usual and a statically linked
# echo_server), and when the server runs already (warm), beside the null-call
# latency of that server and the start-up of a bare omniORB server. A private
# omniNames and vex serve on 127.0.0.1; every process runs on one CPU
# (taskset) and is stopped by its pid on every way out.
# Usage: bash bench/activation_bench.sh [build-dir]     (default: build-bench)
# Knobs: RUNS (21 cold starts), CALLS (20000 warm lookups and null calls), CPU (0).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
runs=${RUNS:-21}
calls=${CALLS:-20000}
cpu=${CPU:-0}

bench=activation_bench
source bench/common.sh
bench_configure "$build"
cmake -S . -B "$build" -DKELVANOR_STATIC_ECHO_SERVER=ON >/dev/null
if ! cmake --build "$build" -j"$(nproc)" --target echo_server vex omni_echo_server \
    activation_driver >/dev/null; then
  echo "activation_bench: build failed (activation_driver needs Google Benchmark's bench" \
       "directory, omni_echo_server omniORB: tools/deps.sh installs both)" >&2
  exit 1
fi
build=$(cd "$build" && pwd)
# The static C library warns about its name lookups at link time: expected.
static_server=-
if cmake --build "$build" --target echo_server_static >/dev/null 2>&1; then
  static_server=$build/echo_server_static
else
  echo "activation_bench: echo_server_static cannot be built here: the static row is left out"
fi
[ -x /usr/bin/omniNames ] || { echo "activation_bench: /usr/bin/omniNames is missing" >&2; exit 1; }

# start NAME PATTERN COMMAND...: runs it pinned in the background and waits
# until its output holds PATTERN; returns 1 if it ended first.
start() {
  local name=$1 pattern=$2 out="$tmp/$1.out" pid
  shift 2
  : >"$out"
  taskset -c "$cpu" "$@" >"$out" 2>&1 &
  pid=$!
  pids+=("$pid")
  for _ in $(seq 150); do
    if grep -q "$pattern" "$out"; then return 0; fi
    kill -0 "$pid" 2>/dev/null || return 1
    sleep 0.1
  done
  echo "activation_bench: $name did not start: $(cat "$out")" >&2
  exit 1
}
# A loopback port nobody listens on now; another process may still take it,
# hence the retries below.
port() { echo $((20000 + RANDOM % 30000)); }

mkdir -p "$tmp/ns" "$tmp/web/wai/NameService" "$tmp/impl"
cd "$tmp"  # vex and the servers it starts work here
started=0
for _ in 1 2 3 4 5; do
  p=$(port)
  rm -rf "$tmp/ns"/*
  if start omniNames "Root context is IOR:" /usr/bin/omniNames -start "$p" -logdir "$tmp/ns" \
      -ORBendPoint "giop:tcp:127.0.0.1:$p"; then
    started=1
    break
  fi
done
[ $started = 1 ] || { echo "activation_bench: omniNames did not start" >&2; exit 1; }
sed -n 's/.*Root context is \(IOR:[0-9a-fA-F]*\).*/\1/p' "$tmp/omniNames.out" | head -n 1 \
  >"$tmp/web/wai/NameService/bench.IOR"
export NS_SERVER_ROOT=$tmp/web NS_SERVER_ID=bench KELVANOR_IMPL_PATH=$tmp/impl

started=0
for _ in 1 2 3 4 5; do
  if start vex "naming service" "$build/vex" -OAipaddr 127.0.0.1 -OAport "$(port)"; then
    started=1
    break
  fi
done
if [ $started = 0 ] || ! grep -q "VEX registered with naming service" "$tmp/vex.out"; then
  echo "activation_bench: vex did not start: $(cat "$tmp/vex.out")" >&2
  exit 1
fi

echo "activation benchmark: $runs cold starts each, $calls warm lookups and null calls, CPU $cpu"
if ! taskset -c "$cpu" timeout 600 "$build/activation_driver" "$build/echo_server" \
    "$static_server" "$build/omni_echo_server" "$runs" "$calls" "$tmp/extra.pids" \
    >"$tmp/figures"; then
  echo "activation_bench: the driver failed" >&2
  exit 1
fi
fig() { awk -v k="$1" '$1 == k {print $2}' "$tmp/figures"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }
verdict() { awk -v v="$1" -v t="$2" 'BEGIN {print (v <= t ? "meets" : "misses") " <= " t}'; }
row() { printf '%-44s %12.1f   %s\n' "$1" "$2" "$3"; }

cold=$(fig cold_shared)
warm=$(fig warm)
null=$(fig null)
omni=$(fig omni_start)
echo
printf '%-44s %12s   %s\n' "median" "us" "target"
row "cold activation, echo_server" "$cold" "$(verdict "$cold" 1500) us"
if [ "$static_server" != - ]; then
  row "cold activation, echo_server_static" "$(fig cold_static)" "$(verdict "$(fig cold_static)" 1500) us"
else
  printf '%-44s %12s\n' "cold activation, echo_server_static" "not built"
fi
row "omniORB server, spawn to reference printed" "$omni" "(anchor)"
row "warm lookup" "$warm" ""
row "null call, pid()" "$null" ""
printf '%-44s %12s   %s\n' "cold activation / omniORB start" "$(ratio "$cold" "$omni")x" ""
printf '%-44s %12s   %s\n' "warm lookup / null call" "$(ratio "$warm" "$null")x" \
  "$(verdict "$(ratio "$warm" "$null")" 1.5)"

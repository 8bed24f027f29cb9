#!/usr/bin/env bash
# Null-call speed of the echo example: two-way latency of pid() and the rate
# of oneway note("") calls, for Kelvanor's echo_server driven by the raw
# client, against omniORB's client and server. Every process runs on one
# CPU (taskset) over 127.0.0.1; each figure is the median of REPS runs.
# Usage: bash bench/echo_bench.sh [build-dir]     (default: build-bench)
# Knobs: REPS (5), LATENCY_CALLS (20000), ONEWAY_CALLS (200000), CPU (0).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
reps=${REPS:-5}
latency_calls=${LATENCY_CALLS:-20000}
oneway_calls=${ONEWAY_CALLS:-200000}
cpu=${CPU:-0}

bench=echo_bench
source bench/common.sh
bench_configure "$build"

if ! cmake --build "$build" -j"$(nproc)" --target raw_echo_client stub_echo_client omni_echo_client \
    omni_echo_server >/dev/null; then
  echo "echo_bench: build failed (raw_echo_client needs Google Benchmark, the peers" \
       "omniORB: tools/deps.sh installs both)" >&2
  exit 1
fi
# echo_server may not exist in this tree yet; a failure for another reason stops here.
has_echo_server=1
if ! out=$(cmake --build "$build" -j"$(nproc)" --target echo_server 2>&1); then
  if ! grep -qiE "unknown target|no rule to make target" <<<"$out"; then
    echo "$out" >&2
    exit 1
  fi
  has_echo_server=0
fi

row() { printf '%-38s %16.2f %16.0f\n' "$1" "$2" "$3"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }
verdict() { awk -v v="$1" -v t="$3" -v op="$2" 'BEGIN {ok = (op == "<=") ? v <= t : v >= t; print (ok ? "meets" : "misses") " " op " " t}'; }

start_server omni_echo_server "$build/omni_echo_server"
omni_ior=$server_ior
pairs=(b c)
if [ $has_echo_server = 1 ]; then
  start_server echo_server "$build/echo_server" -OAipaddr 127.0.0.1
  kelvanor_ior=$server_ior
  pairs=(a n s b c)
fi
# (a) waits for each reply in a nested dispatch, the broker's default, so
# that calls coming back to the client are served meanwhile; (n) is a plain
# client that serves nothing and waits in a blocking read, as omniORB's does.
declare -A client=([a]=$build/raw_echo_client [n]="$build/raw_echo_client -ORBnocallback"
                   [s]=$build/stub_echo_client
                   [b]=$build/omni_echo_client [c]=$build/raw_echo_client)
declare -A target=([a]=${kelvanor_ior:-} [n]=${kelvanor_ior:-} [s]=${kelvanor_ior:-}
                   [b]=$omni_ior [c]=$omni_ior)

echo "echo benchmark: $reps runs each, $latency_calls two-way and $oneway_calls oneway calls a run, CPU $cpu"
# The pairs take turns within each repetition, so that a change in the
# machine's load falls on all of them alike.
declare -A lats rates
for ((i = 0; i < reps; i++)); do
  for p in "${pairs[@]}"; do
    lats[$p]+="$(run_client "${client[$p]}" "${target[$p]}" latency "$latency_calls") "
    rates[$p]+="$(run_client "${client[$p]}" "${target[$p]}" oneway "$oneway_calls") "
  done
done
declare -A lat rate
for p in "${pairs[@]}"; do
  lat[$p]=$(tr ' ' '\n' <<<"${lats[$p]}" | grep . | median)
  rate[$p]=$(tr ' ' '\n' <<<"${rates[$p]}" | grep . | median)
done

echo
printf '%-38s %16s %16s\n' "client -> server" "latency us/call" "oneway calls/s"
if [ $has_echo_server = 1 ]; then
  row "(a) raw Kelvanor -> echo_server" "${lat[a]}" "${rate[a]}"
  row "(n) same, -ORBnocallback" "${lat[n]}" "${rate[n]}"
  row "(s) Kelvanor stub -> echo_server" "${lat[s]}" "${rate[s]}"
fi
row "(b) omniORB -> omniORB server" "${lat[b]}" "${rate[b]}"
row "(c) raw Kelvanor -> omniORB server" "${lat[c]}" "${rate[c]}"
if [ $has_echo_server = 1 ]; then
  for p in a n s; do
    lr=$(ratio "${lat[$p]}" "${lat[b]}")
    rr=$(ratio "${rate[$p]}" "${rate[b]}")
    printf '%-38s %16s %16s\n' "Kelvanor/omniORB, ($p)/(b)" "${lr}x" "${rr}x"
    echo "  targets: latency $(verdict "$lr" "<=" 1.10), oneway rate $(verdict "$rr" ">=" 1.5)"
  done
else
  echo "echo_server is not built in this tree: (a) and the Kelvanor/omniORB ratios are not measured;"
  echo "(c) checks the raw client against omniORB's server instead."
fi

#!/usr/bin/env bash
# Kelvanor's speed and memory in one table, each line against its anchor
# measured in the same run:
#   - CDR encoding and decoding against omniORB's cdrMemoryStream, and Anys
#     of a sequence<long> and of a struct in and out against omniORB's Any;
#   - null two-way latency, oneway rate and 64 KiB there-and-back through the
#     generated Demo::Echo stub and echo_server, against omniORB's client and
#     server built from the same IDL;
#   - the null two-way call as a new dynamic request each time, against the
#     same call through the stub;
#   - repository load and rewrite at 100, 1,000 and 10,000 entries and the
#     memory of 10,000 loaded, against fixed targets;
#   - p99 latency of echo_server's null two-way calls while 32 clients
#     stall it (unfinished messages, replies never read), against the same
#     without them.
# Every process runs on one CPU (taskset) over 127.0.0.1; the network
# figures are medians of REPS runs taken in turns.
# Usage: bash bench/table.sh [build-dir]     (default: build-bench)
# Knobs: REPS (3), LATENCY_CALLS (20000), ONEWAY_CALLS (1000000: shorter runs
#        are dominated by the first filling of the socket buffers),
#        BULK_CALLS (2000), P99_CALLS (20000), CPU (0).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
reps=${REPS:-3}
latency_calls=${LATENCY_CALLS:-20000}
oneway_calls=${ONEWAY_CALLS:-1000000}
bulk_calls=${BULK_CALLS:-2000}
p99_calls=${P99_CALLS:-20000}
cpu=${CPU:-0}

bench=table
source bench/common.sh
bench_configure "$build"
if ! cmake --build "$build" -j"$(nproc)" --target echo_server stub_echo_client omni_echo_client \
    omni_echo_server cdr_compare repository_times stall_clients >/dev/null; then
  echo "table: build failed (the anchors need omniORB and Google Benchmark:" \
       "tools/deps.sh installs both)" >&2
  exit 1
fi

# line MEASURE KELVANOR ANCHOR UNIT RATIO TARGET-OP TARGET: one row; the
# ratio is already oriented so that the target reads as written.
line() {
  local ok
  ok=$(awk -v v="$5" -v t="$7" -v op="$6" 'BEGIN {print ((op == "<=") ? v <= t : v >= t) ? "meets" : "MISSES"}')
  printf '%-34s %12s %12s %-8s %7s  %-8s %s\n' "$1" "$2" "$3" "$4" "$5" "$6 $7" "$ok"
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }

start_server omni_echo_server "$build/omni_echo_server"
omni_ior=$server_ior
start_server echo_server "$build/echo_server" -OAipaddr 127.0.0.1
ours_ior=$server_ior

declare -A runs
for ((i = 0; i < reps; i++)); do
  for mode in latency oneway bulk; do
    case $mode in latency) n=$latency_calls ;; oneway) n=$oneway_calls ;; bulk) n=$bulk_calls ;; esac
    runs[ours.$mode]+="$(run_client "$build/stub_echo_client" "$ours_ior" $mode "$n") "
    runs[omni.$mode]+="$(run_client "$build/omni_echo_client" "$omni_ior" $mode "$n") "
  done
  runs[ours.dii]+="$(run_client "$build/stub_echo_client" "$ours_ior" dii "$latency_calls") "
done
fig() { tr ' ' '\n' <<<"${runs[$1]}" | grep . | median; }

# p99 without, then with the stalling clients holding their connections.
for ((i = 0; i < reps; i++)); do
  runs[p99.alone]+="$(run_client "$build/stub_echo_client" "$ours_ior" p99 "$p99_calls") "
done
"$build/stall_clients" "$ours_ior" 30 >"$tmp/stall.out" 2>&1 &
echo $! >>"$tmp/extra.pids"
for _ in $(seq 300); do grep -q ready "$tmp/stall.out" && break; sleep 0.1; done
grep -q ready "$tmp/stall.out" || { echo "table: stall_clients did not get ready" >&2; exit 1; }
for ((i = 0; i < reps; i++)); do
  runs[p99.stalled]+="$(run_client "$build/stub_echo_client" "$ours_ior" p99 "$p99_calls") "
done

taskset -c "$cpu" timeout 300 "$build/bench/cdr_compare" >"$tmp/cdr"
taskset -c "$cpu" timeout 600 "$build/bench/repository_times" >"$tmp/repo"

echo "Kelvanor against its anchors, one run, CPU $cpu; ratio > 1 is faster where the target is >="
printf '%-34s %12s %12s %-8s %7s  %-8s %s\n' measure Kelvanor anchor unit ratio target ""
while read -r _ what ours omni _; do
  case $what in
    any_*) label="Any ${what#any_} (vs omniORB's Any)" ;;
    *) label="CDR $what (vs cdrMemoryStream)" ;;
  esac
  line "$label" "$ours" "$omni" ns "$(ratio "$omni" "$ours")" ">=" 1.0
done <"$tmp/cdr"
o=$(fig ours.latency) a=$(fig omni.latency)
line "null two-way latency (vs omniORB)" "$o" "$a" us/call "$(ratio "$o" "$a")" "<=" 1.10
o=$(fig ours.dii) a=$(fig ours.latency)
line "dynamic null call (vs stub call)" "$o" "$a" us/call "$(ratio "$o" "$a")" "<=" 1.25
o=$(fig ours.oneway) a=$(fig omni.oneway)
line "oneway rate (vs omniORB)" "$o" "$a" calls/s "$(ratio "$o" "$a")" ">=" 1.5
o=$(fig ours.bulk) a=$(fig omni.bulk)
line "64 KiB there-and-back (vs omniORB)" "$o" "$a" calls/s "$(ratio "$o" "$a")" ">=" 1.3
o=$(fig p99.stalled) a=$(fig p99.alone)
line "p99 latency, 32 stalling clients" "$o" "$a" us "$(ratio "$o" "$a")" "<=" 1.5
while read -r _ what n value; do
  if [ "$what" = rss ]; then
    line "vex memory, $n entries" "$value" 32 MB "$(ratio "$value" 32)" "<=" 1.0
  else
    line "repository $what, $n entries" "$value" 25 ms "$(ratio "$value" 25)" "<=" 1.0
  fi
done <"$tmp/repo"

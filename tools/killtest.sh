#!/usr/bin/env bash
# A long test, not run by tools/test.sh: kills vex with SIGKILL in the middle
# of its rewrites, ROUNDS times (default 1000), while vexctl registers as
# fast as it can. After each restart: no damaged file, no temporary file
# left, and every registration vexctl saw acknowledged is there. At the end
# a truncated repository must be kept aside as impl_rep.damaged-<time>.
# Usage: bash tools/killtest.sh [rounds] [build-dir]   (default: build-rel)
# Every process started here is stopped by pid, also on failure.
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-1000}
bin=$(cd "${2:-build-rel}" && pwd)
work=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill -KILL "$p" 2>/dev/null || true; wait "$p" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "killtest: round $round: $*" >&2; exit 1; }
wait_for() {  # FILE TEXT PID: up to 10 s
  for _ in $(seq 200); do
    grep -q "$2" "$1" 2>/dev/null && return 0
    kill -0 "$3" 2>/dev/null || return 1
    sleep 0.05
  done
  return 1
}

mkdir -p "$work/ns" "$work/impl_dir" "$work/web/wai/NameService"
round=0
for attempt in 1 2 3 4 5; do
  port=$((20000 + RANDOM % 20000))
  rm -rf "$work/ns"/*
  omniNames -start "$port" -logdir "$work/ns" -ORBendPoint "giop:tcp:127.0.0.1:$port" >"$work/ns.out" 2>&1 &
  pids+=($!)
  wait_for "$work/ns.out" 'Root context is IOR:' $! && break
  [ "$attempt" -eq 5 ] && fail "omniNames did not start"
done
grep -o 'IOR:[0-9a-f]*' "$work/ns.out" | head -1 >"$work/web/wai/NameService/kill.IOR"
export NS_SERVER_ROOT="$work/web" NS_SERVER_ID=kill KELVANOR_IMPL_PATH="$work/impl_dir"
vexport=$((20000 + RANDOM % 20000))
: >"$work/acked"

start_vex() {
  (cd "$work" && exec "$bin/vex" -v -OAipaddr 127.0.0.1 -OAport "$vexport") >"$work/vex.out" 2>&1 &
  vex=$!
  pids+=("$vex")
  wait_for "$work/vex.out" 'registered with naming service' "$vex" || fail "vex did not start: $(cat "$work/vex.out")"
}

for ((round = 1; round <= rounds; round++)); do
  start_vex
  grep -q 'damaged' "$work/vex.out" && fail "damaged repository: $(grep damaged "$work/vex.out")"
  leftovers=$(ls "$work/impl_dir" | grep -v '^impl_rep$' || true)
  [ -z "$leftovers" ] || fail "left in the directory: $leftovers"
  stored=$("$bin/vexctl" status Kill 2>/dev/null || true)
  while read -r name; do
    grep -qw -- "$name" <<<"$stored" || fail "acknowledged $name is gone"
  done <"$work/acked"
  if ((round % 50 == 0)); then
    "$bin/vexctl" unreg-all && : >"$work/acked"
  fi
  # Registrations as fast as they go, until the kill.
  rm -f "$work/stop"
  (
    for ((i = 0; ; i++)); do
      [ -e "$work/stop" ] && exit 0
      "$bin/vexctl" reg Kill "r$round-$i" /bin/sh >/dev/null 2>&1 && echo "r$round-$i" >>"$work/acked"
    done
  ) &
  writer=$!
  pids+=("$writer")
  sleep "0.$((RANDOM % 4))$((RANDOM % 10))"
  kill -KILL "$vex"
  wait "$vex" 2>/dev/null || true
  # The writer ends by itself, so that no vexctl of it reaches the next vex.
  touch "$work/stop"
  wait "$writer" 2>/dev/null || true
  ((round % 100 == 0)) && echo "killtest: $round rounds"
done

# A repository cut short is kept aside before anything rewrites it.
size=$(stat -c %s "$work/impl_dir/impl_rep")
truncate -s $((size - 3)) "$work/impl_dir/impl_rep"
cp "$work/impl_dir/impl_rep" "$work/cut"
start_vex
copy=$(grep -o 'a copy is kept as .*' "$work/vex.out" | sed 's/a copy is kept as //')
[ -n "$copy" ] && cmp -s "$copy" "$work/cut" || fail "no copy of the damaged file"
echo "killtest: $rounds kills, no torn file, no acknowledged registration lost, no temporary file left"

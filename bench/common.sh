# Shared by the benchmark scripts (sourced, not run): the Release build with
# the benchmarks, a scratch directory, servers pinned to one CPU and stopped
# by pid on every way out, and medians.
# The caller sets `bench` (its name for messages) and `cpu` first.

# bench_configure BUILD-DIR: installs the tools, configures a Release tree
# with the benchmarks if there is none yet, and notes another build type.
bench_configure() {
  local build=$1 type
  bash tools/deps.sh
  if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELVANOR_BENCH=ON >/dev/null
  fi
  type=$(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$build/CMakeCache.txt")
  [ "$type" = Release ] || echo "$bench: note: $build is a '$type' build, not Release"
}

tmp=$(mktemp -d)
pids=()
# Extra pids to kill, one a line, may be left in $tmp/extra.pids by a script.
bench_cleanup() {
  if [ -f "$tmp/extra.pids" ]; then
    while read -r p; do kill -KILL "$p" 2>/dev/null || true; done <"$tmp/extra.pids"
  fi
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  rm -rf "$tmp"
}
trap bench_cleanup EXIT
trap 'exit 130' INT TERM

# start_server NAME COMMAND...: runs it pinned and sets server_ior once the
# first line of its output is a complete reference. The EXIT trap stops it.
start_server() {
  local name=$1 out="$tmp/$1.out" pid
  shift
  : >"$out"  # there before the server, so that polling can read it at once
  taskset -c "$cpu" "$@" >"$out" 2>"$tmp/$name.err" &
  pid=$!
  pids+=("$pid")
  for _ in $(seq 150); do
    server_ior=$(head -n 1 "$out")
    if [[ $server_ior == IOR:* ]] && [ "$(wc -l <"$out")" -ge 1 ]; then return 0; fi
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "$bench: $name gave no reference: $(cat "$tmp/$name.err")" >&2
  exit 1
}

# run_client CLIENT IOR MODE N: one bounded run, pinned; prints its figure
# (the second word of the client's line).
run_client() {
  local v
  # $1 may carry options after the program's path, hence no quotes.
  v=$(taskset -c "$cpu" timeout 120 $1 "$2" "$3" "$4" | awk '{print $2}') || v=
  if [ -z "$v" ]; then
    echo "$bench: $1 $3 failed" >&2
    exit 1
  fi
  echo "$v"
}

median() { sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

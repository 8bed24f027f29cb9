# Sourced by the scripts that run vex beside a real naming service
# (tools/demo.sh, tools/package_test.sh). They keep the pids of what they
# start in the array pids and call stop_started on every way out.
#   wait_for FILE TEXT [PID]  up to 10 seconds for TEXT to appear in FILE,
#                             less if the process PID ends first
#   start_naming DIR          omniNames on 127.0.0.1, its log and output in
#                             DIR; the root context's IOR in the file where
#                             vex looks for it, as a web server leaves it
#                             (the reference and a line end); exports
#                             NS_SERVER_ROOT and NS_SERVER_ID, and sets
#                             naming_ior and naming_port
#   stop_started              stops every pid in pids

wait_for() {
  for _ in $(seq 100); do
    grep -q "$2" "$1" 2>/dev/null && return 0
    [ -n "${3:-}" ] && ! kill -0 "$3" 2>/dev/null && return 1
    sleep 0.1
  done
  return 1
}

start_naming() {
  local dir=$1 attempt
  mkdir -p "$dir/ns" "$dir/web/wai/NameService"
  # A port picked at random may be taken: omniNames then ends at once, and
  # another is tried.
  for attempt in 1 2 3 4 5; do
    naming_port=$(( 20000 + RANDOM % 20000 ))
    rm -rf "$dir/ns"/*
    omniNames -start "$naming_port" -logdir "$dir/ns" \
      -ORBendPoint "giop:tcp:127.0.0.1:$naming_port" >"$dir/ns.out" 2>&1 &
    pids+=($!)
    wait_for "$dir/ns.out" 'Root context is IOR:' $! && break
    if [ "$attempt" -eq 5 ]; then
      echo "omniNames did not start:" >&2
      cat "$dir/ns.out" >&2
      return 1
    fi
  done
  naming_ior=$(grep -o 'IOR:[0-9a-f]*' "$dir/ns.out" | head -1)
  echo "$naming_ior" > "$dir/web/wai/NameService/kelvanor.IOR"
  export NS_SERVER_ROOT="$dir/web" NS_SERVER_ID=kelvanor
}

# wait gives the status of a process killed by a signal, or fails for one
# that is not our child (a server that vex started): neither may stop the loop.
stop_started() {
  local p
  for p in "${pids[@]}"; do
    kill "$p" 2>/dev/null || true
    wait "$p" 2>/dev/null || true
  done
  pids=()
}

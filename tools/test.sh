#!/usr/bin/env bash
# Builds Kelvanor with warnings as errors and runs every test through CTest,
# first in an optimised build with shared libraries, whose install, out-of-tree
# builds and .deb packages tools/package_test.sh then tries, again under
# AddressSanitizer and UBSan with static libraries, and last runs every fuzz
# target for a short while (tools/fuzz.sh).
# Usage: bash tools/test.sh     (build directories: build-test, build-test-asan)
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/deps.sh
build=${KELVANOR_BUILD:-build-test}
jobs=$(nproc)

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVANOR_WERROR=ON \
  -DBUILD_SHARED_LIBS=ON >/dev/null
cmake --build "$build" -j"$jobs"
(cd "$build" && ctest -j"$jobs" -LE slow --output-on-failure --timeout 300)

# The tests labelled slow mostly wait for timers (a minute or two each) and
# use little CPU: they run once, here, in the background while the rest goes
# on, and are collected before the fuzzing.
slowlog="$build/slow-tests.log"
setsid bash -c 'cd "$1" && exec ctest -j3 -L slow --output-on-failure --timeout 300' _ "$build" \
  >"$slowlog" 2>&1 &
slowpid=$!  # its own process group, stopped whole if this script ends early
trap 'kill -- "-$slowpid" 2>/dev/null || true' EXIT

echo "== the installed broker: out-of-tree builds, vex as installed, the .deb packages =="
bash tools/package_test.sh "$build"

echo "== the same tests under AddressSanitizer and UBSan =="
cmake -S . -B "$build-asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKELVANOR_WERROR=ON \
  -DKELVANOR_SANITIZE=ON -DKELVANOR_BENCH=OFF >/dev/null
cmake --build "$build-asan" -j"$jobs"
(cd "$build-asan" && UBSAN_OPTIONS=print_stacktrace=1 ctest -j"$jobs" -LE slow --output-on-failure --timeout 300)

echo "== the slow tests =="
if ! wait "$slowpid"; then
  cat "$slowlog"
  exit 1
fi
trap - EXIT
tail -n 3 "$slowlog"

echo "== the decoders under the fuzzer, about 30 seconds in all =="
bash tools/fuzz.sh

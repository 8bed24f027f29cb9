#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (build directory
# build-fuzz) and runs each from its seed corpus for a share of the time.
# Fails if any target finds a crash, a leak, a hang or an oversized
# allocation; the input that did it is left in build-fuzz/fuzz-artifacts.
#
#   bash tools/fuzz.sh          about 30 seconds of fuzzing over all targets
#   bash tools/fuzz.sh 600      600 seconds for each target
#   KELVANOR_FUZZ_TARGETS="cdr giop" bash tools/fuzz.sh 60    only those
#
# The corpora are copied to a scratch directory first, so that what a run
# finds does not grow the repository; copy an input into
# tests/fuzz/corpus/<target>/ by hand to keep it.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/deps.sh
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
if ! command -v clang++ >/dev/null || ! ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a \
    >/dev/null 2>&1; then
  need=()
  for pkg in clang libclang-rt-dev; do have_pkg "$pkg" || need+=("$pkg"); done
  if [ "$(id -u)" -ne 0 ]; then
    echo "fuzz: clang with its fuzzer runtime is missing (${need[*]}); run as root or install it" >&2
    exit 1
  fi
  echo "fuzz: installing ${need[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

all=(cdr giop ior objkey ipcbuf objstream repo agentudp agenttcp)
read -r -a targets <<<"${KELVANOR_FUZZ_TARGETS:-${all[*]}}"
if [ $# -ge 1 ]; then
  per=$1
else
  per=$(( 30 / ${#targets[@]} ))
  [ "$per" -ge 1 ] || per=1
fi

build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKELVANOR_FUZZ=ON -DKELVANOR_WERROR=ON -DBUILD_TESTING=OFF -DKELVANOR_BENCH=OFF >/dev/null
build_targets=()
for t in "${targets[@]}"; do build_targets+=("${t}_fuzz"); done
cmake --build "$build" -j"$(nproc)" --target "${build_targets[@]}"

scratch=$(mktemp -d /tmp/kelvanor-fuzz-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
artifacts="$PWD/$build/fuzz-artifacts"
mkdir -p "$artifacts"

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
failed=()
total=0
for t in "${targets[@]}"; do
  corpus="$scratch/$t"
  mkdir -p "$corpus"
  cp tests/fuzz/corpus/"$t"/* "$corpus"/
  log="$scratch/$t.log"
  echo "== $t: ${per}s"
  # -rss_limit_mb bounds the process, -malloc_limit_mb any one allocation:
  # a decoder that believes a stated size fails here. -timeout catches hangs.
  if "$build/fuzz/${t}_fuzz" "$corpus" -max_total_time="$per" -max_len=4096 -timeout=10 \
       -rss_limit_mb=2048 -malloc_limit_mb=256 -print_final_stats=1 \
       -artifact_prefix="$artifacts/$t-" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    echo "   ${runs:-?} inputs run"
    total=$(( total + ${runs:-0} ))
  else
    failed+=("$t")
    tail -n 60 "$log"
  fi
done
echo "fuzz: $total inputs run in all"
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failures in ${failed[*]}; inputs in $artifacts" >&2
  exit 1
fi

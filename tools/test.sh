#!/usr/bin/env bash
# Builds Kelvanor with warnings as errors and runs every test through CTest.
# Usage: bash tools/test.sh     (build directory: build-test, or $KELVANOR_BUILD)
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/deps.sh
build=${KELVANOR_BUILD:-build-test}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVANOR_WERROR=ON >/dev/null
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest -j"$(nproc)" --output-on-failure --timeout 300

#!/usr/bin/env bash
# Builds the client, ipc and service tests (and the service, plug-ins and helpers they start) with
# the thread sanitizer into build-tsan/ (EVC_TSAN_BUILD_DIR) and runs them: the layers with threads
# and processes. The first report ends the process that made it, so the test that ran it fails.
# Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${EVC_TSAN_BUILD_DIR:-build-tsan}
LABELS=(client ipc service)
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEVC_SANITIZE=thread >/dev/null
fi
cmake --build "$BUILD_DIR" -j"$(nproc)" --target "${LABELS[@]/#/evc_tests_}"
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}
ctest --test-dir "$BUILD_DIR" --output-on-failure -j"$(nproc)" -L "$(IFS='|'; echo "${LABELS[*]}")" "$@"

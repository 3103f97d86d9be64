#!/usr/bin/env bash
# Builds the whole tree with the address and undefined-behaviour sanitizers (gcc, the vptr check
# included; -fno-sanitize-recover, so any finding ends the process) into build-asan/
# (EVC_ASAN_BUILD_DIR) and runs the whole suite there. Leaks are reported by every program and
# service at its exit and fail the test that ran it. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${EVC_ASAN_BUILD_DIR:-build-asan}
EVC_BUILD_DIR=$BUILD_DIR ./scripts/build.sh -DEVC_SANITIZE=address,undefined
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
ctest --test-dir "$BUILD_DIR" --output-on-failure -j"$(nproc)" "$@"

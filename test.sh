#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/build.sh
ctest --test-dir "${EVC_BUILD_DIR:-build}" --output-on-failure -j"$(nproc)" "$@"
./scripts/test-ratio.sh

#!/usr/bin/env bash
# Configures (once) and builds the tree into build/ with Ninja.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
BUILD_DIR=${EVC_BUILD_DIR:-build}
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
fi
cmake --build "$BUILD_DIR" -j"$(nproc)"

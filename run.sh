#!/usr/bin/env bash
# Installs what is missing, builds, and encodes the built-in test pattern
# through the service into out/demo.h264. Extra arguments go to evc-encode.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/build.sh
ENCODER=build/bin/evc-encode
if [ ! -x "$ENCODER" ]; then
  echo "run.sh: the encoder is not built yet (evc-encode and the H.264 plug-in have not landed);" \
       "the service and its libraries are built under build/." >&2
  exit 0
fi
mkdir -p out
exec "$ENCODER" -y --test-pattern 640x360@25:4 -o out/demo.h264 "$@"

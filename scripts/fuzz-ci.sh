#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang and the address and undefined-behaviour
# sanitizers into build-fuzz/ (EVC_FUZZ_BUILD_DIR), then runs each for EVC_FUZZ_SECONDS seconds
# (default 30) on a copy of its seed corpus, one after the other. A crash, leak, sanitizer
# finding or hang fails the run; the input that caused it is kept in build-fuzz/findings/NAME/
# and the fuzzer's log is printed. The seed corpora in fuzz/corpus/ are only read.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${EVC_FUZZ_BUILD_DIR:-build-fuzz}
FUZZ_SECONDS=${EVC_FUZZ_SECONDS:-30}

if ! command -v clang++ >/dev/null; then
  echo "fuzz-ci: clang++ is not installed; fuzz targets skipped" >&2
  exit 0
fi
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DEVC_FUZZ=ON \
    -DEVC_SANITIZE=address,undefined >/dev/null
fi
cmake --build "$BUILD_DIR" --target evc_fuzzers -j"$(nproc)"

shopt -s nullglob
targets=("$BUILD_DIR"/bin/fuzz_*)
if [ ${#targets[@]} -eq 0 ]; then
  echo "fuzz-ci: no fuzz target was built in $BUILD_DIR/bin" >&2
  exit 1
fi
rm -rf "$BUILD_DIR/findings"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=()
for exe in "${targets[@]}"; do
  name=${exe##*/fuzz_}
  exe=$(realpath "$exe")
  dir=$work/$name
  # New inputs go to the copy; anything a target writes stays in its folder.
  mkdir -p "$dir/corpus" "$dir/tmp"
  if [ -d "fuzz/corpus/$name" ]; then
    cp -r "fuzz/corpus/$name/." "$dir/corpus/"
  fi
  if (cd "$dir" && TMPDIR="$dir/tmp" "$exe" -max_total_time="$FUZZ_SECONDS" -timeout=20 \
    -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$dir/" corpus >log 2>&1); then
    stats=$(grep -E '^stat::(number_of_executed_units|new_units_added):' "$dir/log" | awk '{print $2}' | paste -sd/)
    cover=$(grep -oE 'cov: [0-9]+' "$dir/log" | tail -1)
    echo "fuzz-ci: $name passed ${FUZZ_SECONDS} s: executions/new inputs $stats, $cover"
  else
    failed+=("$name")
    mkdir -p "$BUILD_DIR/findings/$name"
    cp "$dir"/crash-* "$dir"/leak-* "$dir"/timeout-* "$dir"/oom-* "$BUILD_DIR/findings/$name/" 2>/dev/null || true
    echo "fuzz-ci: $name FAILED; inputs kept in $BUILD_DIR/findings/$name; its log:" >&2
    tail -n 60 "$dir/log" >&2
  fi
done
if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzz-ci: failed: ${failed[*]}" >&2
  exit 1
fi

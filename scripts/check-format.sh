#!/usr/bin/env bash
# Fails when a C/C++ file is not formatted as .clang-format says; prints the offending lines.
#   check-format.sh            files changed against main (committed or not)
#   check-format.sh BASE       files changed against BASE (a branch, tag or commit)
#   check-format.sh --all      every C/C++ file in the repository
# Set CLANG_FORMAT to use another binary than clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."

CLANG_FORMAT=${CLANG_FORMAT:-clang-format}
PATTERNS=('*.c' '*.cc' '*.cpp' '*.h' '*.hpp')

case "${1:-}" in
-h | --help)
  sed -n '2,6p' "$0" | sed 's/^# \{0,1\}//'
  exit 0
  ;;
--all)
  mapfile -t files < <(git ls-files -- "${PATTERNS[@]}")
  ;;
*)
  base=${1:-main}
  if ! git rev-parse --verify --quiet "$base^{commit}" >/dev/null; then
    echo "check-format: unknown base '$base'" >&2
    exit 2
  fi
  # Against the fork point, so that work landed on the base meanwhile is not counted.
  fork=$(git merge-base "$base" HEAD)
  mapfile -t files < <(git diff --name-only --diff-filter=ACMR "$fork" -- "${PATTERNS[@]}")
  ;;
esac

if ! command -v "$CLANG_FORMAT" >/dev/null; then
  echo "check-format: $CLANG_FORMAT not found (scripts/install-deps.sh installs it)" >&2
  exit 2
fi
if [ ${#files[@]} -eq 0 ]; then
  exit 0
fi
if ! "$CLANG_FORMAT" --dry-run -Werror "${files[@]}"; then
  echo "check-format: run '$CLANG_FORMAT -i' on the files above (or 'git clang-format main')" >&2
  exit 1
fi
echo "check-format: ${#files[@]} files formatted"

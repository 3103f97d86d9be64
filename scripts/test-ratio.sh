#!/usr/bin/env bash
# Prints the lines of code, the lines of tests (tests/ and fuzz/) and their ratio. A line counts
# when it is not blank and not only a // comment, in .c/.cc/.cpp/.h/.hpp files. Outside 0.25..0.40
# it warns, and still exits 0: the ratio is a guide, not a gate.
set -euo pipefail
cd "$(dirname "$0")/.."

count() {
  # Reads file names on standard input; prints the counted lines of all of them.
  grep -E '\.(c|cc|cpp|h|hpp)$' | tr '\n' '\0' | xargs -0 -r cat -- |
    grep -cvE '^[[:space:]]*(//.*)?$' || true
}

# The tracked and new files; outside a git checkout, every file but the build folders.
files=$(git ls-files --cached --others --exclude-standard 2>/dev/null ||
  find . -type f -not -path './build*' -not -path './.git/*' | sed 's|^\./||')
code=$(grep -vE '^(tests|fuzz)/' <<<"$files" | count)
tests=$(grep -E '^(tests|fuzz)/' <<<"$files" | count)
ratio=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.2f", c ? t / c : 0 }')
echo "test ratio: code $code lines, tests $tests lines, ratio $ratio"
if awk -v r="$ratio" 'BEGIN { exit !(r < 0.25 || r > 0.40) }'; then
  echo "warning: test ratio $ratio is outside 0.25..0.40" >&2
fi
exit 0

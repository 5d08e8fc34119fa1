#!/bin/bash
# Prints the lines of the product and those of its tests and fuzzers, blank ones, data and settings left out, and the share
# of the tests. Benchmarks count nowhere.
# Usage: scripts/proportions.sh
# Exit code: 0; 1 above the limit; 2 usage.
set -euo pipefail
limit=31 # percent: tests are to see much, and to be kept in order by the same people
cd "$(dirname "$0")/.."

if [ $# -gt 0 ]; then
  echo "Usage: scripts/proportions.sh" >&2
  exit 2
fi

lines() { git ls-files -z -- "$@" ':!*.json' ':!*.clang-tidy' ':!fuzz/corpus' | xargs -0 cat | grep -c '[^[:space:]]'; }

product=$(lines include ipc log trace base tools examples demo)
tests=$(lines tests fuzz)
tenths=$((1000 * tests / (product + tests)))
printf 'product           %6d lines\ntests and fuzzers %6d lines, %d.%d %% of both together (limit %d %%)\n' \
  "$product" "$tests" $((tenths / 10)) $((tenths % 10)) $limit
[ $tenths -le $((10 * limit)) ] || { echo "Too much of the code is tests." >&2; exit 1; }

#!/bin/bash
# Runs every fuzzer, as many at a time as there are processors. What they find is left in
# <build>/findings; what widened the coverage in <build>/corpus, so that the next run goes on from there.
set -euo pipefail

usage='Usage: fuzz/run.sh SECONDS [BUILD]
Runs each fuzzer for SECONDS. BUILD is the build tree of the preset fuzz (default: build/fuzz).
Exit codes: 0 nothing was found, 1 something was, or a fuzzer was broken off, 2 wrong usage or fuzzers not built.'
case ${1-} in
  --help) echo "$usage"; exit 0 ;;
  '' | *[!0-9]*) echo "$usage" >&2; exit 2 ;;
esac
seconds=$1
source=$(dirname "$0")
build=${2:-$source/../build/fuzz}
if [ ! -x "$build/bin/write_seeds" ]; then
  echo "No fuzzers in $build/bin: cmake --preset fuzz && cmake --build --preset fuzz" >&2
  exit 2
fi
"$build/bin/write_seeds" "$build/seeds"
mkdir -p "$build/findings" "$build/logs"

run_one() {
  local name=$1 log=$build/logs/$1.log
  local options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=20000
    -print_final_stats=1 -artifact_prefix="$build/findings/$name-")
  mkdir -p "$build/corpus/$name" "$source/corpus/$name"
  if "$build/bin/${name}_fuzzer" "${options[@]}" \
    "$build/corpus/$name" "$build/seeds/$name" "$source/corpus/$name" >"$log" 2>&1; then
    awk -v name="$name" '/cov: /{for (i = 1; i < NF; i++) if ($i == "cov:") cov = $(i + 1)}
      /number_of_executed_units/{runs = $2}
      END {printf "%-20s %10d runs, %5d edges, nothing found\n", name, runs, cov}' "$log"
    return
  fi
  echo "$name found something ($build/findings/$name-*), or was broken off; the end of $log:"
  tail -n 40 "$log"
  return 1
}
export -f run_one
export build source seconds

find "$build/bin" -name '*_fuzzer' -printf '%f\n' | sort | sed 's/_fuzzer$//' |
  xargs -P "$(nproc)" -I{} bash -euo pipefail -c 'run_one {}' || exit 1

#!/bin/sh
# Runs the built benchmark and draws its plots.
set -eu

usage() {
  cat <<'TEXT'
Usage: bench/run.sh [--docs] [BUILD_DIR] [-- RYN_BENCH_OPTIONS]

Runs BUILD_DIR/bin/ryn_bench (default build/bench) and writes its table, CSV files
and plots to BUILD_DIR/report. With --docs the figures of round trips and bursts on
one core are also put into docs/performance.md, and the plots that it shows and the
CSV files into docs/performance: do that on a machine that does nothing else.
TEXT
}

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/bench
docs=no
while [ $# -gt 0 ]; do
  case $1 in
    -h | --help) usage; exit 0 ;;
    --docs) docs=yes ;;
    --) shift; break ;;
    -*) usage >&2; exit 2 ;;
    *) build=$1 ;;
  esac
  shift
done

program=$build/bin/ryn_bench
if [ ! -x "$program" ]; then
  echo "run.sh: no $program; build it with: cmake --preset bench && cmake --build --preset bench" >&2
  exit 2
fi
report=$build/report
rm -rf "$report"
mkdir -p "$report"

# Kept apart from tee, whose result a pipe would give instead.
result=0
"$program" --csv "$report" "$@" >"$report/table.txt" || result=$?
cat "$report/table.txt"
[ "$result" -eq 0 ] || exit "$result"

if ! command -v gnuplot >/dev/null; then
  echo "run.sh: no plots: gnuplot is missing (package gnuplot-nox)" >&2
  exit 1
fi
gnuplot -e "csv='$report'; out='$report'" "$root/bench/plots.gp"
if [ "$docs" = yes ]; then
  mkdir -p "$root/docs/performance"
  for file in latency-pinned.svg latency-free.svg ratio-pinned.svg sweep-pinned.svg results.csv sweep.csv; do
    cp "$report/$file" "$root/docs/performance/"
  done
  # shellcheck disable=SC2016  # awk's fields
  "$root/scripts/page_section.py" --update "$root/docs/performance.md" awk '
    BEGIN { print "<!-- table: begin, written by bench/run.sh --docs -->"; print "```text" }
    /^[^ ]/ { wanted = /^(Machine|(Round trip|Bursts).*one core)/ }
    wanted { print }
    END { print "```"; print "<!-- table: end -->" }' "$report/table.txt"
fi
echo "Table, CSV files and plots: $report"

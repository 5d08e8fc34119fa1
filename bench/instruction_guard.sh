#!/bin/sh
# Fails when an exchange of the library costs more instructions than was agreed on.
set -eu

usage() {
  cat <<'TEXT'
Usage: bench/instruction_guard.sh [--accept] [BUILD_DIR]

Counts under callgrind the instructions that each process spends on one GetVisible
exchange, with the programs of BUILD_DIR (default build/bench; a Release build), and
compares them with bench/instructions.txt. A count, unlike a time, is the same on a
loaded machine.

  --accept   write the counts to bench/instructions.txt instead

Exit code: 0 within 3 % of the figures or below; 1 above; 2 something is missing.
TEXT
}

root=$(cd "$(dirname "$0")/.." && pwd)
figures=$root/bench/instructions.txt
build=$root/build/bench
accept=no
tolerance=3

for argument; do
  case $argument in
    -h | --help) usage; exit 0 ;;
    --accept) accept=yes ;;
    -*) usage >&2; exit 2 ;;
    *) build=$argument ;;
  esac
done

fail() {
  echo "instruction_guard.sh: $1" >&2
  exit 2
}

scenario=$build/bin/instruction_scenario
[ -x "$scenario" ] || fail "no $scenario; build it with: cmake --preset bench && cmake --build --preset bench"
command -v valgrind >/dev/null || fail "valgrind is missing (package valgrind)"
grep -q '^CMAKE_BUILD_TYPE:[A-Z]*=Release$' "$build/CMakeCache.txt" ||
  fail "$build is no Release build, and the figures are of one"

# Queues of our own, so that neither a running system nor a run beside this one is met.
namespace=$root/scripts/own_namespace.sh
"$namespace" true || exit 2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
count="valgrind --quiet --tool=callgrind"
"$namespace" timeout --kill-after=5 300 sh -c "
  $count --callgrind-out-file='$work/browser' '$scenario' browser & browser=\$!
  $count --callgrind-out-file='$work/plugin' '$scenario' plugin || { kill \$browser; exit 1; }
  wait \$browser" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "the exchange failed"; }

machine=$(uname -m)
exchanges=$("$scenario" count)
result=0
for process in plugin browser; do
  # The first dump covers what was counted; the last one is made at the end of the program.
  total=$(awk '/^(totals|summary):/ { total = $2 } END { print total }' "$work/$process.1")
  [ -n "$total" ] || fail "callgrind left no count for the $process process"
  counted=$((total / exchanges))
  if [ "$accept" = yes ]; then
    echo "$machine $process $counted" >>"$work/figures"
    continue
  fi
  agreed=$(awk -v machine="$machine" -v process="$process" \
    '$1 == machine && $2 == process { print $3 }' "$figures")
  if [ -z "$agreed" ]; then
    echo "$process: $counted instructions per exchange; no figure for $machine to compare with"
    continue
  fi
  echo "$process: $counted instructions per exchange, agreed $agreed"
  if [ $((counted * 100)) -gt $((agreed * (100 + tolerance))) ]; then
    result=1
  elif [ $((counted * 100)) -lt $((agreed * (100 - tolerance))) ]; then
    echo "$process: more than $tolerance % below; keep the gain with: bench/instruction_guard.sh --accept"
  fi
done

if [ "$accept" = yes ]; then
  {
    sed -n '/^#/p' "$figures"
    grep -v -e '^#' -e "^$machine " "$figures" || true
    cat "$work/figures"
  } >"$work/new"
  cp "$work/new" "$figures"
  cat "$work/figures"
elif [ $result -ne 0 ]; then
  cat >&2 <<TEXT
instruction_guard.sh: more than $tolerance % above the agreed figure.
Look where the instructions went (callgrind_annotate); if they are worth it, accept them with
  bench/instruction_guard.sh --accept
and commit bench/instructions.txt with the reason.
TEXT
fi
exit $result

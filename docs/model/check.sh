#!/bin/bash
# Checks the model, and that it fails without each of its safeguards. One line per run, two runs at a time.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

usage() {
  cat <<TEXT
Usage: check.sh [NAME]
Checks the model in every variant, or only the variant NAME. A search that ends otherwise than expected, or
is not exhaustive, makes the exit code 1. For NAME, the steps of a counterexample are printed if there is one.
TEXT
}

# Name, expected end, macros. `holds`: every interleaving is right. `mixed`: an assertion fails. `hangs`: a
# request is never answered nor given up. `holds-but-may-wait`: as `holds`, and a wait without end is allowed.
variants() {
  local small="-DROOM_REQUESTS=4 -DROOM_REPLIES=4 -DCLIENT_LIVES"
  cat <<TABLE
successors              holds               -DREQUESTS=4 -DEVENTS=3
losses                  holds               -DLOSSES -DLONG_REPLIES
room-for-one            holds               -DLOSSES -DLONG_REPLIES -DROOM_REQUESTS=1 -DROOM_REPLIES=1
one-way-messages        holds               -DSERVERS=2 -DONEWAYS=2
overlap                 holds               -DSERVERS=2 -DOVERLAP
overlap-one-way         holds               -DSERVERS=2 -DOVERLAP -DEVENTS=1 -DONEWAYS=1 -DREQUESTS=2
no-endless-run          no-cycle            -DLOSSES
orderly                 holds               -DORDERLY -DEVENTS=0 $small
orderly-plain           holds               -DORDERLY -DSERVERS=0 -DPLAIN=AFTER -DONEWAYS=1 $small
orderly-plain-after     holds               -DORDERLY -DSERVERS=1 -DPLAIN=AFTER -DONEWAYS=1 $small
orderly-plain-before    holds               -DORDERLY -DSERVERS=1 -DEVENTS=0 -DPLAIN=BEFORE -DONEWAYS=1 $small
orderly-plain-beside    holds               -DORDERLY -DSERVERS=1 -DPLAIN=BESIDE -DSINGLE $small
plain                   holds               -DSERVERS=0 -DPLAIN=AFTER $small
plain-after             holds               -DSERVERS=1 -DPLAIN=AFTER $small
plain-before            holds-but-may-wait  -DSERVERS=1 -DPLAIN=BEFORE $small
plain-beside            holds               -DSERVERS=1 -DPLAIN=BESIDE -DSINGLE -DNO_SIGNALS $small
DEATHS_NOT_COMPARED            hangs
NO_SECOND_COMPARISON           mixed
NO_DOUBT_AFTER_GIVING_UP       mixed
DRAINED_ONLY_BEFORE            mixed
NO_DOUBT_AFTER_HALF_A_REQUEST  mixed  -DROOM_REQUESTS=1
LENGTH_NOT_COMPARED            mixed  -DLONG_REPLIES -DROOM_REPLIES=1
FENCE_JOINED                   mixed
LOSS_NOT_NOTED                 hangs  -DLOSSES
LIFE_READ_FIRST                hangs
WOKEN_NOT_DRAINED              mixed
TAKER_NOT_COMPARED             hangs
FIRST_REQUEST_ONLY             mixed
NO_SECOND_LOOK                 mixed
DEAD_SERVERS_ANSWERS_KEPT      mixed
ONEWAYS_TRUSTED                mixed  -DONEWAYS=2
FENCE_TAKER_UNKNOWN            mixed  -DOVERLAP
REFUSED_BEHIND_A_RECORD        mixed  -DORDERLY -DSERVERS=1 -DPLAIN=AFTER -DONEWAYS=1 $small
TABLE
}

# Prints what the search came to.
outcome() {
  local report=$1
  if ! grep -q 'errors: ' "$report"; then echo broken
  elif grep -q 'assertion violated' "$report"; then echo mixed
  elif grep -q 'invalid end state (' "$report"; then echo hangs
  elif grep -qE 'errors: [1-9]|Search not completed|search depth too small' "$report"; then echo incomplete
  else echo holds
  fi
}

check() {
  local name=$1 expected=$2 macros=("${@:3}") compile=(-DSAFETY) search=() wanted
  wanted=${expected%-but-may-wait}
  case $expected in
    holds-but-may-wait) search=(-E) ;;
    no-cycle) compile=(-DNP) search=(-l) wanted=holds ;;
  esac
  # Those that must fail are named after the macro, and found after a few states.
  [[ $name = *[a-z]* ]] || macros+=("-D$name")
  build=$(mktemp -d)
  trap 'rm -rf "${build:?}"' EXIT
  cp "$here/exchange.pml" "$build"
  cd "$build"
  spin -a "${macros[@]}" exchange.pml >report 2>&1 &&
    gcc -O0 -w "${compile[@]}" -o pan pan.c >>report 2>&1 &&
    ./pan -m100000 -w22 "${search[@]}" >report 2>&1 || true
  local found states
  found=$(outcome report)
  states=$(sed -nE 's/^ *([0-9]+) states, stored.*/\1/p' report)
  if [ "$found" = "$wanted" ]; then
    printf 'ok      %-30s %-6s %9s states\n' "$name" "$found" "$states"
  else
    printf 'FAILED  %-30s %-6s expected %s\n' "$name" "$found" "$expected"
  fi
  if [ -n "${TRACE:-}" ] && [ -e exchange.pml.trail ]; then
    ./pan -r | sed -nE 's/^ *[0-9]+:.*proc +[0-9]+ \((\w+)\) exchange.pml:([0-9]+).*\[(.*)\]$/\1 \2: \3/p'
  fi
  [ "$found" = "$wanted" ] || { [ "$found" != broken ] || cat report; return 1; }
}

case ${1:-} in
  --help) usage ;;
  --one) check "${@:2}" ;;
  "") variants | xargs -P 2 -L 1 "$0" --one || exit 1 ;;
  *)
    row=$(variants | awk -v name="$1" '$1 == name')
    [ -n "$row" ] || { echo "check.sh: no variant $1; there are:" >&2; variants | awk '{print $1}' >&2; exit 2; }
    TRACE=1
    # shellcheck disable=SC2086
    check $row
    ;;
esac

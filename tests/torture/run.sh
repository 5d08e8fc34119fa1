#!/bin/bash
# Tries what ryn_torture promises to who runs it: plans, refusals, and that it fails when a host does.
# Usage: tests/torture/run.sh FOLDER [EMULATOR...]   (the folder holds ryn_torture and examples/browser)
set -euo pipefail
folder=$1
emulator=("${@:2}")
torture=("${emulator[@]}" "$folder/ryn_torture")
own_namespace=$(dirname "$0")/../../scripts/own_namespace.sh

die() {
  printf '%s\n' "$@" >&2
  exit 1
}

# expect CODE PATTERN COMMAND...: the command ends with this code, and what it says has such a part.
expect() {
  local code=0 said
  said=$("${@:3}" 2>&1) || code=$?
  [ "$code" = "$1" ] || die "exit code $code, not $1: ${*:3}" "$said"
  # shellcheck disable=SC2053
  [[ $said == *$2* ]] || die "nothing like \"$2\": ${*:3}" "$said"
}

plan() { "${torture[@]}" --plan --seconds 30 --seed "$1"; }
[ "$(plan 7)" = "$(plan 7)" ] || die "a seed has two plans"
[ "$(plan 7)" != "$(plan 8)" ] || die "two seeds have one plan"
for phase in kills malformed anything settling recovered; do
  [ "$(plan 7 | grep -c "^$phase ")" -ge 3 ] || die "not each of three cycles has $phase"
done

expect 2 --seconds "${torture[@]}" --seconds 0

# A user namespace may have no others inside it.
# shellcheck disable=SC2016  # for the inner shell
no_namespaces='echo 0 >/proc/sys/user/max_ipc_namespaces && exec "$@"'
if unshare --user --map-root-user sh -c "$no_namespaces" - true 2>/dev/null; then
  expect 2 --real-queues unshare --user --map-root-user sh -c "$no_namespaces" - "${torture[@]}"
fi

# Beside a host that lives, in the place of a set's own queues.
# shellcheck disable=SC2016
beside_a_host='"${@:2}" "$1/examples/browser" & trap "kill $!" EXIT
  until ipcs -s | grep -q 0x92101081; do sleep 0.05; done
  code=0; "${@:2}" "$1/ryn_torture" --real-queues || code=$?
  ipcs -q | grep -q 0x92101081 || echo "the queue is gone"; exit $code'
expect 2 "serves the queue 0x92101081" "$own_namespace" bash -c "$beside_a_host" - "$folder" "${emulator[@]}"
expect 0 "Everything held" "$own_namespace" "${torture[@]}" --real-queues --seconds 1

# strike SIGNAL WHOM: runs it and sends the signal to its hosts, or to itself, until it has ended. Each process has
# something on its standard error; that of the hosts alone is to be seen.
strike() {
  local pids
  LD_DEBUG=statistics "${torture[@]}" --seconds 100 --seed 7 2>/dev/null &
  while kill -0 $! 2>/dev/null; do
    sleep 0.2
    pids=$!
    [ "$2" = itself ] || pids=$(pgrep -P $! -f 'role=[a-z-]* host') || continue
    # shellcheck disable=SC2086  # several
    kill "-$1" $pids 2>/dev/null || true
  done
  wait $!
}
expect 1 "host ended by itself, with signal 6; *runtime linker statistics*NOT everything held" strike ABRT hosts
expect 1 "interrupted*NOT everything held" strike TERM itself

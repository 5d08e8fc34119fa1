#!/bin/bash
# Prints what a build of the library weighs: its stripped size, and the threads and private memory that an
# idle endpoint adds to a process that only uses jsoncpp. Both endpoints run at the same time, as on a set,
# so that the pages they share count for neither.
#
# A 32-bit build runs under emulation. Its own memory is then what the emulator has mapped below 4 GiB; the
# emulator's lies above.
#
# Usage: bench/footprint/run.sh BUILD STRIP [EMULATOR...]
# Exit code: 0; 1 above a limit or no exchange; 2 usage.
set -euo pipefail

limit_library=$((200 * 1024))
limit_memory=128

if [ $# -lt 2 ]; then
  echo "Usage: bench/footprint/run.sh BUILD STRIP [EMULATOR...]" >&2
  exit 2
fi
if [ "${HBBTV_RYN_FOOTPRINT_NAMESPACE:-}" != own ]; then
  HBBTV_RYN_FOOTPRINT_NAMESPACE=own exec "$(dirname "$0")/../../scripts/own_namespace.sh" "$0" "$@"
fi
build=$1
strip=$2
emulator=("${@:3}")

work=$(mktemp -d)
pids=()
# shellcheck disable=SC2317  # the trap calls it
clean_up() {
  kill "${pids[@]}" 2>/dev/null || true
  wait
  rm -rf "$work"
}
trap clean_up EXIT

# Starts a program that writes "idle" once it is.
start() {
  "${emulator[@]}" "$build/bin/$1" "${@:2}" >"$work/${#pids[@]}" &
  pids+=($!)
}

await_idle() {
  local i
  for ((i = 0; i < 400; ++i)); do
    if [ "$(grep -l idle "$work"/[0-9]* | wc -l)" -eq ${#pids[@]} ]; then return; fi
    sleep 0.1
  done
  echo "The processes did not get ready." >&2
  exit 1
}

# Private memory in KiB of the program in process $1.
private_memory() {
  awk -v guest_only="${#emulator[@]}" '
    /^[0-9a-f]+-[0-9a-f]+ / { split($1, range, "-"); counts = !guest_only || length(range[1]) <= 8 }
    counts && /^Private_(Clean|Dirty):/ { sum += $2 }
    END { print sum }' "/proc/$1/smaps"
}

threads() { awk '/^Threads:/ { print $2 }' "/proc/$1/status"; }

cp "$build"/libhbbtv_ryn.so "$work/library"
"$strip" "$work/library"
size=$(stat -c %s "$work/library")
result=0
printf 'library, stripped: %d bytes (limit %d)\n' "$size" $limit_library
[ "$size" -le $limit_library ] || result=1

start footprint_empty_process
start footprint_empty_process
start footprint_idle_endpoint browser
start footprint_idle_endpoint plugin
await_idle
for side in 2 3; do
  memory=$(($(private_memory "${pids[side]}") - $(private_memory "${pids[0]}")))
  printf 'idle %s endpoint: %d threads, %d KiB of private memory (limit %d)\n' \
    "$([ $side = 2 ] && echo browser || echo plug-in)" \
    $(($(threads "${pids[side]}") - $(threads "${pids[0]}"))) $memory $limit_memory
  [ $memory -le $limit_memory ] || result=1
done
[ $result -eq 0 ] || echo "The footprint is above its limit." >&2
exit $result

#!/bin/bash
# Runs the two hosts of the demo as two processes, for an evening of television or for as many as the variable
# EVENINGS says, and ends when both have ended.
#
# They meet in an IPC namespace of their own where the machine permits one: the queues vanish with it and
# a set that runs on this machine is not disturbed. Otherwise the queues are removed afterwards.
# One evening is recorded, and shown as a page, where rynctl is there and nobody else watches.
# Exit code: 0 when both hosts were content, else 1; 2 usage.
set -euo pipefail

if [ $# -ne 2 ] || [ ! -x "$1/browser_host" ] || [ ! -x "$1/plugin_host" ]; then
  echo "Usage: demo/run.sh PROGRAMS RECORDS   (folders: of the two hosts, and for what is recorded)" >&2
  exit 2
fi
programs=$1
evening=$2/evening

own_namespace=$(dirname "$0")/../scripts/own_namespace.sh
if [ -z "${HBBTV_RYN_DEMO_NAMESPACE:-}" ] && "$own_namespace" true 2>/dev/null; then
  HBBTV_RYN_DEMO_NAMESPACE=own exec "$own_namespace" "$0" "$@"
fi

# The keys of what is there: queues (q) or semaphores (s).
ipc_keys() { ipcs "-$1" | awk '/^0x/ { print $1 }' | sort; }

queues=$(ipc_keys q)
semaphores=$(ipc_keys s)
hosts=()

# shellcheck disable=SC2317  # the trap calls it
clean_up() {
  local key
  [ ${#hosts[@]} -eq 0 ] || kill "${hosts[@]}" 2>/dev/null || true
  wait || true
  for key in $(comm -13 <(echo "$queues") <(ipc_keys q)); do ipcrm -Q "$key" || true; done
  for key in $(comm -13 <(echo "$semaphores") <(ipc_keys s)); do ipcrm -S "$key" || true; done
}
trap clean_up EXIT

listens() {
  local port_of_traces=D432 inode
  inode=$(awk -v port=":$port_of_traces\$" '$2 ~ port { print $10 }' /proc/net/udp)
  [ -n "$inode" ] && [ -n "$(find "/proc/$recorder/fd" -lname "socket:?$inode?" 2>/dev/null)" ]
}

# The hosts trace from their first message on when they are told to by DEMO_TRACE.
start_recording() {
  "$programs/rynctl" monitor --save "$evening.json" >/dev/null 2>"$evening.log" &
  recorder=$!
  hosts+=("$recorder")
  while kill -0 "$recorder" 2>/dev/null; do
    if listens; then
      export DEMO_TRACE=1
      return
    fi
    sleep 0.1
  done
}

recorder=
if [ "${EVENINGS:-1}" = 1 ] && [ -x "$programs/rynctl" ]; then start_recording; fi

"$programs/browser_host" &
browser=$!
hosts+=("$browser")
result=0
"$programs/plugin_host" --evenings "${EVENINGS:-1}" || result=1

# The browser host runs until it is told to stop, and ends with 0 only if its own checks held.
kill "$browser" 2>/dev/null || true
wait "$browser" || result=1
page=
if [ -n "$recorder" ]; then
  kill -INT "$recorder" 2>/dev/null || true
  if wait "$recorder" && "$programs/rynctl" report "$evening.json" -o "$evening.html" >/dev/null 2>"$evening.log"; then
    page=$evening.html
  fi
fi
hosts=()
if [ $result -ne 0 ]; then
  echo "The demo failed: a host ended with an error." >&2
  exit 1
fi

if [ -x "$programs/rynctl" ]; then
  echo
  echo "Worth trying next (docs/rynctl.md goes on from there):"
  if [ -n "$page" ]; then
    echo "  $page shows this evening: open it in a browser"
  elif [ -n "$recorder" ]; then
    echo "  This evening has no page: $(sed -n 's/^rynctl: //p' "$evening.log")"
  fi
  echo "  $programs/rynctl serve browser    and in a second terminal"
  echo "  $programs/rynctl call CreateApp appid=0 orgid=0 'url=http://portal.example/?org=10' child=0 opapp=0"
fi

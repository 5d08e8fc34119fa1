#!/bin/bash
# Runs the two hosts of README.md in every order in which they can meet, and checks what the plug-in host
# says. To be started in an IPC namespace of its own.
# Usage: tests/examples/run.sh FOLDER [EMULATOR...]   (the folder holds browser and plugin)
set -euo pipefail
folder=$1
emulator=("${@:2}")
said=""
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT

start_browser() {
  "${emulator[@]}" "$folder/browser" &
}

stop_browser() {
  kill -TERM $!
  wait $!
}

# until_said TEXT [COMMAND]: runs the plug-in host, again and again for ten seconds, until it says so; the command
# between the runs.
until_said() {
  local attempt
  for ((attempt = 0; attempt < 100; ++attempt)); do
    said+=$("${emulator[@]}" "$folder/plugin")$'\n'
    [[ $said != *"$1"* ]] || return 0
    sleep 0.1
    ${2:-}
  done
  printf 'The plug-in host never said "%s", but\n%s' "$1" "$said" >&2
  exit 1
}

restart_browser() {
  stop_browser
  said=""
  start_browser
  until_said "visible: yes"
}

until_said "no browser process has run yet"
start_browser
until_said "visible: yes"
# A browser host says it once, and a plug-in host that ends at that moment does not hear it.
until_said "1/10 is loaded" restart_browser
kill -KILL $!
wait $! 2>/dev/null || true
until_said "the browser process is gone"

said=""
start_browser
until_said "visible: yes"
stop_browser

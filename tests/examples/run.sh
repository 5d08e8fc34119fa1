#!/bin/bash
# Runs the two hosts of README.md in every order in which they can meet, and checks what the plug-in host
# says. To be started in an IPC namespace of its own.
# Usage: tests/examples/run.sh FOLDER [EMULATOR...]   (the folder holds browser and plugin)
set -euo pipefail
folder=$1
emulator=("${@:2}")
said=""

# until_said TEXT: runs the plug-in host, again and again for ten seconds, until it says so.
until_said() {
  local attempt
  for ((attempt = 0; attempt < 100; ++attempt)); do
    said+=$("${emulator[@]}" "$folder/plugin")$'\n'
    [[ $said != *"$1"* ]] || return 0
    sleep 0.1
  done
  printf 'The plug-in host never said "%s", but\n%s' "$1" "$said" >&2
  exit 1
}

until_said "no browser process has run yet"
"${emulator[@]}" "$folder/browser" &
until_said "visible: yes"
until_said "1/10 is loaded"
kill -KILL $!
wait $! 2>/dev/null || true
until_said "the browser process is gone"

said=""
"${emulator[@]}" "$folder/browser" &
until_said "visible: yes"
kill -TERM $!
wait $!

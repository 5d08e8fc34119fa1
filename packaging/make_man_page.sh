#!/bin/sh
# Writes a program's page: with, in the place of its line @HELP SECTION@, what the program says of itself and of
# each of its commands. The program stands behind its emulator if it needs one.
# Usage: packaging/make_man_page.sh PAGE OUTPUT [EMULATOR...] PROGRAM
set -eu
page=$1
exec >"$2"
shift 2
program=$*

# section TITLE [COMMAND...]
section() {
  printf '.SH %s\n.EX\n' "$1"
  shift
  # shellcheck disable=SC2086  # the emulator's words
  $program "$@" --help | sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\\&&/"
  printf '.EE\n'
}

subcommands() {
  # shellcheck disable=SC2086
  $program "$@" --help | awk '/^Subcommands:/ { inside = 1; next } inside && /^  [a-z]/ { print $1 }'
}

while IFS= read -r line; do
  case $line in
    @HELP*) ;;
    *) printf '%s\n' "$line"; continue ;;
  esac
  line=${line#@HELP }
  section "${line%@}"
  for command in $(subcommands); do
    section "rynctl $command" "$command"
    for inner in $(subcommands "$command"); do section "rynctl $command $inner" "$command" "$inner"; done
  done
done <"$page"

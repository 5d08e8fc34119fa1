#!/bin/bash
# Compares the output of a command with a committed list. Exit code: 0 equal, 1 different, 2 usage or the
# command failed. With HBBTV_RYN_ACCEPT_ABI=1 the list is replaced instead.
set -euo pipefail

if [ $# -lt 2 ]; then
  echo "Usage: compare.sh LIST COMMAND [ARGUMENT...]" >&2
  exit 2
fi
list=$1
shift
actual=$("$@") || exit 2

if [ "${HBBTV_RYN_ACCEPT_ABI:-0}" = 1 ]; then
  printf '%s\n' "$actual" >"$list"
  exit 0
fi
if ! diff -u --label "$(basename "$list"), committed" --label "as built" "$list" <(printf '%s\n' "$actual"); then
  cat >&2 <<END

The binary interface differs from abi/$(basename "$list"). Programs that were compiled against the
committed one may break. If the change is meant, take it over with
    make accept-abi
and commit the list; if a line is lost or altered, raise the soname too.
END
  exit 1
fi

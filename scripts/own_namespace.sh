#!/bin/sh
# Runs a command in an IPC namespace of its own: its queues meet nobody's, and vanish with it.
# Usage: scripts/own_namespace.sh COMMAND [ARGUMENT...]
# Exit code: that of the command; 2 where the kernel permits no such namespace.
set -eu
for how in --ipc '--user --map-root-user --ipc'; do
  # shellcheck disable=SC2086  # several words
  if unshare $how true 2>/dev/null; then exec unshare $how "$@"; fi
done
echo "no private IPC namespace: run as root, or allow user namespaces" >&2
exit 2

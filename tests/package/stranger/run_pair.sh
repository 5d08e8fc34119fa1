#!/bin/sh
# Runs browser and plugin of a folder together; succeeds when both do.
set -eu
timeout 60 "$1/browser" &
browser=$!
timeout 60 "$1/plugin"
wait $browser

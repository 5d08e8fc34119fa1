#!/bin/bash
# Prints what a shared library exports, one readable name per line.
# Usage: list_symbols.sh NM LIBRARY
set -euo pipefail
export LC_ALL=C
"$1" -D --defined-only --demangle --format=posix "$2" | sed -E 's/ [A-Za-z] [0-9a-f]+( [0-9a-f]+)?$//' | sort

#!/bin/bash
# Installs the packages into a fresh Debian root, as an integrator would, builds the example hosts against
# them with CMake and with pkg-config, and runs each pair.
# Usage: tests/package/run.sh FOLDER   (the one that holds the packages)
# shellcheck disable=SC2016  # what stands in single quotes is for apt-get and for the shell in the root
set -euo pipefail

if [ $# -ne 1 ]; then
  echo "Usage: tests/package/run.sh FOLDER" >&2
  exit 2
fi
if [ "$(id -u)" -ne 0 ]; then
  exec sudo "$0" "$@"
fi
packages=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
build=$(realpath "$here/../..")/build
architecture=$(dpkg --print-architecture)
archive=$("$here/../../scripts/fresh_root.sh")

root=$(mktemp -d "$build/fresh-root.XXXXXX")
trap 'rm -rf --one-file-system "$root"' EXIT

eval "$(apt-config shell proxy Acquire::http::Proxy)"

# Runs a command in the fresh root. Nothing of the caller's environment is there.
in_root() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C DEBIAN_FRONTEND=noninteractive \
    ${proxy:+http_proxy="$proxy"} chroot "$root" "$@"
}

# The same in namespaces of its own, with its own processes below /proc.
in_isolated_root() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C \
    unshare --ipc --net --pid --fork --mount-proc="$root/proc" chroot "$root" "$@"
}

tar -C "$root" -xf "$archive"
cp /etc/resolv.conf "$root/etc/resolv.conf"

echo "Installing the packages"
cp "$packages"/*_"$architecture".deb "$root/tmp/"
in_root apt-get -qq update || true
in_root sh -c 'apt-get -qq install -y --no-install-recommends /tmp/*.deb' >"$build/install.log" 2>&1 ||
  { cat "$build/install.log" >&2; exit 1; }
in_root test -f /usr/lib/sysctl.d/60-hbbtv-ryn.conf
in_root rynctl --help >/dev/null
in_isolated_root ryn_torture --seconds 1

cp -r "$here/../../examples" "$here/../examples/run.sh" "$root/srv/"
echo "Building and running with find_package"
in_root sh -ec 'cmake -S /srv/examples -B /srv/cmake-build >/dev/null
  cmake --build /srv/cmake-build'
in_isolated_root /srv/run.sh /srv/cmake-build/bin/examples

echo "Building and running with pkg-config"
in_root sh -ec 'mkdir /srv/pkg-config-build
  for host in browser plugin; do
    g++ -std=c++17 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror $(pkg-config --cflags hbbtv_ryn) \
      /srv/examples/$host.cpp -o /srv/pkg-config-build/$host $(pkg-config --libs hbbtv_ryn)
  done'
in_isolated_root /srv/run.sh /srv/pkg-config-build

echo "Removing the packages"
in_root apt-get -qq purge -y libhbbtv-ryn-dev 'libhbbtv-ryn[0-9]*' hbbtv-ryn-tools >"$build/install.log" 2>&1 ||
  { cat "$build/install.log" >&2; exit 1; }
leftovers=$(in_root find /usr /etc -name '*hbbtv*')
if [ -n "$leftovers" ]; then
  printf 'Left behind after the removal:\n%s\n' "$leftovers" >&2
  exit 1
fi
echo "Package test passed"

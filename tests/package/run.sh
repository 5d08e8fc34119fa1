#!/bin/bash
# Installs the packages into a fresh Debian root, as an integrator would, builds the example hosts against
# them with CMake and with pkg-config, and runs each pair. The fresh root is kept for every clone of the project, in
# $XDG_CACHE_HOME/hbbtv_ryn-package (root's ~/.cache without that variable), for a week.
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
# The packages depend on what this machine's release has, so the fresh root is of the same release.
# shellcheck disable=SC1091
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
kept=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/hbbtv_ryn-package
mkdir -p "$kept"
archive=$kept/fresh-root-$release-$architecture-$(cksum <"$0" | cut -d ' ' -f 1).tar

root=$(mktemp -d "$build/fresh-root.XXXXXX")
part=$(mktemp "$archive.XXXXXX")
chmod 755 "$root"
trap 'rm -rf --one-file-system "$root" "$part"' EXIT

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

make_archive() {
  local mirror
  mirror=$(apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' 'Component: main' |
    awk -v release="$release" '$1 == release { print $2; exit }')
  echo "Making a fresh $release root"
  env ${proxy:+http_proxy="$proxy"} debootstrap --variant=minbase --include=ca-certificates "$release" "$root" "$mirror" >"$build/debootstrap.log" ||
    { tail -20 "$build/debootstrap.log" "$root/debootstrap/debootstrap.log" >&2; return 1; }
  in_root apt-get -qq install -y --no-install-recommends g++ cmake make pkg-config >>"$build/debootstrap.log"
  in_root apt-get clean
  tar -C "$root" -cf "$part" .
  mv "$part" "$archive"
}

find "$kept" -type f -mtime +6 -delete
if [ -e "$archive" ]; then
  tar -C "$root" -xf "$archive"
else
  make_archive
fi
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

#!/bin/bash
# Makes an archive of a fresh Debian root with a compiler, CMake and pkg-config, and prints its name. It is kept for
# every clone of the project, in $XDG_CACHE_HOME/hbbtv_ryn-package (root's ~/.cache without that variable), for a week.
# Usage: scripts/fresh_root.sh
# shellcheck disable=SC2016  # what stands in single quotes is for apt-get
set -euo pipefail

if [ $# -gt 0 ]; then
  echo "Usage: scripts/fresh_root.sh" >&2
  exit 2
fi
cd "$(dirname "$0")/.."
build=$PWD/build
mkdir -p "$build"
if [ "$(id -u)" -ne 0 ]; then
  exec sudo scripts/fresh_root.sh
fi
# The packages depend on what this machine's release has, so the fresh root is of the same release.
# shellcheck disable=SC1091
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
kept=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/hbbtv_ryn-package
mkdir -p "$kept"
find "$kept" -type f -mtime +6 -delete
archive=$kept/fresh-root-$release-$(dpkg --print-architecture)-$(cksum <scripts/fresh_root.sh | cut -d ' ' -f 1).tar
echo "$archive"
[ ! -e "$archive" ] || exit 0

root=$(mktemp -d "$build/fresh-root.XXXXXX")
chmod 755 "$root"
part=$(mktemp "$archive.XXXXXX")
trap 'rm -rf --one-file-system "$root" "$part"' EXIT

echo "Making a fresh $release root" >&2
eval "$(apt-config shell http_proxy Acquire::http::Proxy)"
[ -z "${http_proxy:-}" ] || export http_proxy
mirror=$(apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' 'Component: main' |
  awk -v release="$release" '$1 == release { print $2; exit }')
debootstrap --variant=minbase \
  --include=ca-certificates,g++,cmake,make,pkg-config "$release" "$root" "$mirror" >"$build/debootstrap.log" ||
  { tail -20 "$build/debootstrap.log" "$root/debootstrap/debootstrap.log" >&2; exit 1; }
chroot "$root" apt-get clean
tar -C "$root" -cf "$part" .
mv "$part" "$archive"

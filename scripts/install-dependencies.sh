#!/bin/bash
# Installs the Debian packages that a make target needs. Asks for nothing, not even the network, when all
# of them are there.
set -euo pipefail

usage() {
  cat <<END
Usage: install-dependencies.sh GROUP...
Groups: build check page model armhf package lint fuzz bench
END
}

packages_of() {
  case $1 in
    build) echo cmake ninja-build ccache g++ pkg-config libjsoncpp-dev libcli11-dev libfmt-dev ;;
    check) echo libgtest-dev python3 ;;
    model) echo spin gcc ;;
    page) echo chromium chromium-driver python3-selenium ;;
    armhf) echo g++-arm-linux-gnueabihf libjsoncpp-dev:armhf libfmt-dev:armhf libgtest-dev:armhf libstdc++6:armhf qemu-user ;;
    package) echo debootstrap dpkg-dev file ;;
    lint) echo clang-format clang-tidy ;;
    fuzz) echo clang libclang-rt-dev ;;
    bench) echo libzmq3-dev libnng-dev libsystemd-dev dbus gnuplot-nox valgrind ;;
    *) usage >&2; exit 2 ;;
  esac
}

# A name without an architecture means the machine's own.
is_installed() {
  local architectures
  architectures="all|$(dpkg --print-architecture)"
  [[ $1 != *:* ]] || architectures=${1#*:}
  dpkg-query -W -f '${db:Status-Status} ${Architecture}\n' "$1" 2>/dev/null |
    grep -qxE "installed ($architectures)"
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

if [ $# -eq 0 ] || [ "$1" = --help ]; then
  usage
  exit $(($# == 0 ? 2 : 0))
fi

missing=()
for group in "$@"; do
  for package in $(packages_of "$group"); do
    command -v dpkg >/dev/null && is_installed "$package" || missing+=("$package")
  done
done
[ ${#missing[@]} -gt 0 ] || exit 0

if ! command -v apt-get >/dev/null; then
  echo "Not a Debian system. Please see that these are there: ${missing[*]}" >&2
  exit 0
fi

echo "Installing ${missing[*]}"
for package in "${missing[@]}"; do
  case $package in
    *:armhf) as_root dpkg --add-architecture armhf ;;
  esac
done
# One index that is out of step fails the update, though everything wanted may be had: the installation
# is what counts.
as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 update ||
  echo "Not every package list could be fetched; trying with what is there." >&2
as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 \
  install -y --no-install-recommends "${missing[@]}" >/dev/null ||
  { echo "Could not install: ${missing[*]}" >&2; exit 1; }

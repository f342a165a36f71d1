#!/usr/bin/env bash
# Installs what building, testing and checking KySerial need and this machine lacks: Debian 12 packages only.
# Asks the package manager for nothing when everything is there. Wants root, or sudo.
#   scripts/setup.sh           for demo.sh: compiler, build tools, the program's libraries, socat
#   scripts/setup.sh --bench   for bench.sh: the peers and what counts instructions and system calls
#   scripts/setup.sh --tests   for test.sh too: test frameworks and the programs that tests run
#   scripts/setup.sh --all     for test.sh all and lint.sh too: the other compiler, the Windows cross compiler, Wine
#   scripts/setup.sh --packages  for package.sh, besides --all: what looks at packages, and makes a fresh system
#   scripts/setup.sh --all --coverage  for coverage.sh too
#   scripts/setup.sh --all --page      for the whole test of the service's web page too: a browser (300 MB) and Prometheus
set -euo pipefail

packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libtomlplusplus-dev libboost-dev librapidxml-dev
  socat zlib1g-dev)
if [ "${1:-}" = "--tests" ] || [ "${1:-}" = "--all" ]; then
  packages+=(googletest pkg-config libaravis-dev libusb-1.0-0-dev python3 python3-pytest python3-serial python3-setuptools
    python3-wheel mypy aravis-tools aravis-tools-cli libxml2-utils tshark mandoc zsh fish iproute2 dpkg-dev file procps git
    systemd ncat ser2net)
fi
if [ "${1:-}" = "--all" ]; then
  packages+=(lld llvm clang clang-tidy clang-format libclang-rt-14-dev doxygen graphviz util-linux
    g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64)
fi
if [ "${1:-}" = "--bench" ]; then
  packages+=(pkg-config libaravis-dev libusb-1.0-0-dev libbenchmark-dev socat ser2net valgrind strace python3 binutils)
fi
if [ "${1:-}" = "--packages" ]; then
  packages+=(lintian debootstrap dpkg-dev git)
fi
if [ "${2:-}" = "--coverage" ]; then
  packages+=(gcovr)
fi
if [ "${2:-}" = "--page" ]; then
  packages+=(chromium prometheus python3-prometheus-client)
fi

missing=()
for package in "${packages[@]}"; do
  state=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$state" = "install ok installed" ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null; then
  as_root=(sudo)
else
  echo "setup: missing packages: ${missing[*]}; install them as root" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}" >&2
log=$(mktemp) # what the package manager says is of interest only when it fails
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update -qq &&
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi

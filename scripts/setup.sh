#!/usr/bin/env bash
# Installs what building, testing and checking KySerial need and this machine lacks: Debian 12 packages only.
# Asks the package manager for nothing when everything is there. Wants root, or sudo.
#   scripts/setup.sh           for demo.sh: compiler, build tools, the program's libraries, socat
#   scripts/setup.sh --tests   for test.sh too: the other compiler, the Windows cross compiler, Wine, test frameworks
set -euo pipefail

packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev socat)
if [ "${1:-}" = "--tests" ]; then
  packages+=(googletest clang clang-tidy clang-format libclang-rt-14-dev python3
    g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix wine wine64 procps git)
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
"${as_root[@]}" apt-get update -qq >&2
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2

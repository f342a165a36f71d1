#!/usr/bin/env bash
# Makes wheels of the Python package with the libraries inside, by Debian's tools and without the network:
#   scripts/wheel.sh BUILD FOLDER    of a build: build/release is linux_x86_64, build/windows is win_amd64
# The build has to have KySerialC, KySimulatorC and KyGigEC. Prints the wheel's path.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
mkdir -p "$2"
folder=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r Bindings/python "$work/package"
find "$work" -name __pycache__ -prune -exec rm -rf {} +
sed -n 's/^project(KySerial VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt >"$work/package/VERSION"
# As installed they look for each other in their own folder.
cmake --install "$build" --prefix "$work/tree" >/dev/null
platform=linux_x86_64
for library in JxUtilsLib KySerial KySerialC KySimulatorC KyGigE KyGigEC; do
  if [ -e "$work/tree/bin/$library.dll" ]; then
    platform=win_amd64
    cp "$work/tree/bin/$library.dll" "$work/package/kyserial"
  else
    cp -L "$(find "$work/tree/lib" -name "lib$library.so.0")" "$work/package/kyserial"
    strip --strip-unneeded "$work/package/kyserial/lib$library.so.0"
  fi
done
cd "$work/package"
/usr/bin/python3 - "$platform" "$work" >"$work/log" 2>&1 <<'PY' || { cat "$work/log" >&2; exit 1; }
import sys
from setuptools import build_meta
options = {"--global-option": ["--python-tag", "py3", "--plat-name", sys.argv[1]]}
open(sys.argv[2] + "/name", "w").write(build_meta.build_wheel(sys.argv[2], options))
PY
cp "$work/$(cat "$work/name")" "$folder"
echo "$folder/$(cat "$work/name")"

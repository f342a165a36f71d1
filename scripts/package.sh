#!/usr/bin/env bash
# Makes everything that is given to others, and tries it:
#   scripts/package.sh [FOLDER]            all of it, in build/packages or FOLDER
#   scripts/package.sh --source [FOLDER]   the source tarball alone; prints its path
# All of it is: the source tarball; Debian's packages and the wheel for Linux, built from the unpacked tarball; the zip and the
# wheel for Windows, by the preset windows. lintian looks at the Debian packages. They are then installed in a fresh Debian 12 and
# used there: programs, C, C++, Python and pySerial. Without the right to make a fresh system they are unpacked into a
# folder and the programs run from there, and the end says so.
set -euo pipefail
cd "$(dirname "$0")/.."

only=all
[ "${1:-}" != --source ] || { only=source && shift; }
mkdir -p "${1:-build/packages}"
out=$(cd "${1:-build/packages}" && pwd)
version=$(sed -n 's/^project(KySerial VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=kyserial-$version
work=build/package-work
here=$PWD

# The files of the repository as they are now; the same files make the same archive.
tarball() {
  local when
  when=$(git log -1 --format=%ct)
  git ls-files -z | while IFS= read -r -d '' file; do
    [ ! -e "$file" ] || printf '%s\0' "$file"
  done | tar --null --no-recursion --files-from=- --transform "s|^|$name/|" --sort=name --mtime="@$when" --owner=0 --group=0 \
    --numeric-owner -cf - | gzip -9n >"$out/$name.tar.gz"
  echo "$out/$name.tar.gz"
}

# quiet LOG COMMAND...: what the command says is of interest only when it fails.
quiet() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 40 "$log" >&2; echo "package: failed: $*" >&2; exit 1; }
}

if [ "$only" = source ]; then
  tarball
  exit
fi

scripts/setup.sh --all
scripts/setup.sh --packages
mkdir -p "$work"
rm -rf "${work:?}/$name"
rm -f "$out"/*.deb "$out"/*.whl "$out"/*.zip "$out"/*.tar.gz
tarball

echo "== Linux, from the tarball"
tar xf "$out/$name.tar.gz" -C "$work"
# The paths of one folder, so that a second run finds what the first has compiled.
quiet "$work/configure.log" cmake -S "$work/$name" -B "$work/linux" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKYSERIAL_BUILD_TESTS=OFF \
  -DKYSERIAL_MULTIARCH=ON
quiet "$work/build.log" cmake --build "$work/linux"
(cd "$work/linux" && quiet "$here/$work/cpack.log" cpack -G DEB -B "$here/$work/debs")
cp "$work"/debs/*.deb "$out"
scripts/wheel.sh "$work/linux" "$out"

echo "== Windows"
quiet "$work/windows.log" cmake --preset windows -B "$work/windows" -DCMAKE_BUILD_TYPE=Release -DKYSERIAL_BUILD_TESTS=OFF
quiet "$work/windows.log" cmake --build "$work/windows"
(cd "$work/windows" && quiet "$here/$work/windows.log" cpack -G ZIP -B "$here/$work/zip")
cp "$work"/zip/*.zip "$out"
scripts/wheel.sh "$work/windows" "$out"

echo "== lintian"
lintian --fail-on error,warning "$out"/*.deb

echo "== trying them"
scripts/try_packages.sh "$out" "$work/root"
ls -l "$out"

#!/usr/bin/env bash
# Installs Debian packages and a wheel in a fresh system and uses them there: try_packages.sh FOLDER ROOT
# FOLDER has the packages, ROOT becomes the system: Debian 12, of the place that this machine's packages come from. Wants root.
# Without the right to, the packages are unpacked into ROOT and the programs run from there.
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd)
folder=$(cd "$1" && pwd)
mkdir -p "$2"
root=$(cd "$2" && pwd)
# A run that was ended may have left it.
! mountpoint -q "$root/proc" || umount "$root/proc"
rm -rf --one-file-system "$root"
mkdir -p "$root"

fail() {
  echo "try_packages: $*" >&2
  exit 1
}

# What the lens of a simulated camera says.
answer='STATUS READY ZOOM 0 FOCUS 1000 IRIS 100'

if [ "$(id -u)" != 0 ] || ! command -v debootstrap >/dev/null; then
  for file in "$folder"/*.deb; do
    dpkg -x "$file" "$root"
  done
  printf 'STATUS?\r\n' | "$root/usr/bin/kyserial" term --device sim --port uart0 | grep "$answer" || fail "the program"
  "$root/usr/bin/kyserial" doctor sim || fail "doctor"
  echo "try_packages: only unpacked and started; a fresh system wants root and debootstrap"
  exit
fi

place=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' | head -1)
[ -n "$place" ] || fail "this machine's packages are not Debian 12's"
trap '! mountpoint -q "$root/proc" || umount "$root/proc"' EXIT
debootstrap --variant=minbase bookworm "$root" "$place" >"$root.log" 2>&1 || { tail "$root.log"; fail "debootstrap"; }
cp /etc/resolv.conf "$root/etc/resolv.conf"
for file in /etc/apt/apt.conf.d/*; do # a proxy, if there is one
  ! grep -q Proxy "$file" || cp "$file" "$root/etc/apt/apt.conf.d"
done
mountpoint -q "$root/proc" || mount -t proc proc "$root/proc"
mkdir "$root/try"
cp "$folder"/*.deb "$folder"/*linux_x86_64.whl "$source"/Examples/AnyCompiler.cpp "$source"/Examples/FirstProgram.cpp \
  "$source"/Examples/SerialPort.c "$root/try"
cat >"$root/try/try.sh" <<'IN'
set -euo pipefail
cd /try
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends ./*.deb g++ pkg-config cmake make python3-serial man-db >/try/log 2>&1 || { cat /try/log; exit 1; }
hears() { grep 'STATUS READY ZOOM 0 FOCUS 1000 IRIS 100' || { echo "no answer: $1"; exit 1; }; }
printf 'STATUS?\r\n' | kyserial term --device sim --port uart0 | hears kyserial
kyserial doctor sim
kyserial-camera --version
man -w kyserial-doctor
ls /usr/share/bash-completion/completions/kyserial
ldconfig -p | grep -c libKySerialC.so.0
c++ -std=c++17 AnyCompiler.cpp -o any $(pkg-config --cflags --libs kysimulatorc kygigec) && ./any | hears pkg-config
cc SerialPort.c -o c $(pkg-config --cflags --libs kysimulatorc) && ./c | hears C
cp -r /usr/share/doc/KySerial/Examples examples
cmake -S examples -B examples/build >/try/log 2>&1 && cmake --build examples/build >>/try/log 2>&1 || { cat /try/log; exit 1; }
(cd examples/build && ctest) >/try/log 2>&1 || { cat /try/log; exit 1; }
grep '100% tests passed' /try/log
python3 -c '
import serial
with serial.serial_for_url("ky://sim/uart0", timeout=20) as port:
    port.write(b"STATUS?\r\n")
    print(port.readline())' | hears Python
# The wheel brings its own libraries: nothing else of ours is there.
dpkg --purge python3-kyserial libkyserial-dev libkygige-dev kyserial libkygige0 libkyserial0 >/dev/null
[ ! -e /usr/lib/python3/dist-packages/kyserial ] || { echo "something of the Python package stays"; exit 1; }
apt-get install -y -qq --no-install-recommends python3-venv >/try/log 2>&1 || { cat /try/log; exit 1; }
python3 -m venv --system-site-packages wheel
wheel/bin/pip install --no-index ./*.whl >/dev/null
wheel/bin/python -c '
import serial, kyserial.pyserial
with serial.serial_for_url("ky://sim/uart0", timeout=20) as port:
    port.write(b"STATUS?\r\n")
    print(port.readline())' | hears wheel
IN
# Nothing of this machine's environment.
env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/ LC_ALL=C.UTF-8 chroot "$root" /bin/bash /try/try.sh
echo "try_packages: installed and used in a fresh Debian 12"

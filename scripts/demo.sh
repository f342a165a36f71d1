#!/usr/bin/env bash
# Sets up, builds, and shows KySerial at work on a simulated camera: a dialogue with a lens controller over a UART and
# over a bulk port of each kind, then a scan of an I2C bus and a dump of the EEPROM on it,
# and the identity of an SPI flash. Ends with status 0 when every answer was the right one.
#   scripts/demo.sh            natively
#   scripts/demo.sh windows    the Windows program, under Wine
set -euo pipefail
cd "$(dirname "$0")/.."

preset=release
program=(build/release/bin/kyserial)
setup=()
if [ "${1:-}" = windows ]; then
  preset=windows
  program=(scripts/wine.sh build/windows/bin/kyserial.exe)
  setup=(--tests)
fi

scripts/setup.sh ${setup[@]+"${setup[@]}"}
mkdir -p "build/$preset"
echo "building kyserial (log in build/$preset/demo.log)"
if ! { cmake --preset "$preset" -DKYSERIAL_BUILD_TESTS=OFF -DKYSERIAL_WERROR=OFF -B "build/$preset-demo" &&
  cmake --build "build/$preset-demo" --target kyserial; } >"build/$preset/demo.log" 2>&1; then
  tail -n 40 "build/$preset/demo.log"
  exit 1
fi
program[-1]=${program[-1]/build\/$preset\//build\/$preset-demo\/}

# show EXPECTED ARGUMENTS...: runs kyserial on the standard input; its output has to contain the expected line.
show() {
  local expected=$1
  shift
  printf '\n$ '
  [ -z "${typed:-}" ] || printf "printf '%s' | " "$typed"
  printf 'kyserial'
  printf ' %s' "$@"
  printf '\n'
  local output
  output=$(printf "${typed:-}" | "${program[@]}" "$@" | tr -d '\r')
  printf '%s\n' "$output"
  grep -qxF -- "$expected" <<<"$output" || { echo "demo: expected \"$expected\"" >&2; exit 1; }
}

show 'uart0  0      yes        register UART  UART               UART' ports

for port in uart0 bulk0 bulk1; do
  typed='ID?\r\nZOOM 1200\r\nFOCUS 340\r\nSTATUS?\r\n'
  show 'STATUS READY ZOOM 1200 FOCUS 340 IRIS 100' term --port "$port"
done

# A file keeps the memories of the simulated camera from one command to the next.
memory=build/demo-memory
rm -f "$memory"
typed=
show '50: 50 -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ' i2c detect -y --port bulk2
typed='KySerial 24C02'
show '' i2c eeprom write --port bulk2 --sim-state "$memory" -
typed=
show '00: 4b 79 53 65 72 69 61 6c 20 32 34 43 30 32 ff ff    KySerial 24C02..' \
  i2c dump -y -r 0x00-0x1f --port bulk2 --sim-state "$memory" 0x50
show 'manufacturer 0xef, type 0x30, capacity 0x10 (65536 bytes)' spi flash id --port bulk3

echo
echo "demo: every answer was the right one"

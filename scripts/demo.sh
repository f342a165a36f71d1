#!/usr/bin/env bash
# Sets up, builds, and shows KySerial at work on a simulated camera, which is a program of its own on the network: a
# dialogue with a lens controller over a UART and
# over a bulk port of each kind, a scan of an I2C bus and a dump of the EEPROM on it, the identity of an SPI flash, then
# the bridges: the lens as a terminal that socat types into, and as a Camera Link port for a client in another process.
# Ends with status 0 when every answer was the right one and everything has ended as it should.
#   scripts/demo.sh                 natively
#   scripts/demo.sh --device sim    the simulated camera is part of the program; no network
#   scripts/demo.sh windows         the Windows programs, under Wine; the terminal is a COM port that is mapped to a pty.
#                                   At the end each system's program talks to the other's camera
#   scripts/demo.sh windows --device sim    the Windows program with the camera in it
set -euo pipefail
cd "$(dirname "$0")/.."

device= # what the camera is, as --device takes it; empty: a program on the network
preset=release
program=(build/release/bin/kyserial)
camera=(build/release/bin/kyserial-camera)
setup=()
fast=
attempts=1 # how often a command is tried
patience=() # of the commands that await the lens
case "$*" in
"") ;;
"--device sim") device=sim ;;
windows | "windows --device sim")
  [ "$*" = windows ] || device=sim
  preset=windows
  program=(scripts/wine.sh build/windows/bin/kyserial.exe)
  camera=(scripts/wine.sh build/windows/bin/kyserial-camera.exe)
  setup=(--all)
  fast=--fast # Wine delays datagrams, and the times of the ports begin with the byte: the lines take no time of them
  # A busy machine may stop Wine's camera for longer than a command waits: 800 ms for a confirmation, 300 ms for the lens.
  # "once more" in the output shows each command that was tried again.
  attempts=3
  patience=(--quiet-time 2000)
  ;;
*)
  echo "demo: use scripts/demo.sh [windows] [--device sim]" >&2
  exit 2
  ;;
esac
targets=(kyserial)
[ -n "$device" ] || targets+=(kyserial-camera)

# build PRESET: what the demo runs, without tests.
build() {
  mkdir -p "build/$1"
  echo "building kyserial (log in build/$1/demo.log)"
  if ! { cmake --preset "$1" -DKYSERIAL_BUILD_TESTS=OFF -DKYSERIAL_WERROR=OFF -B "build/$1-demo" &&
    cmake --build "build/$1-demo" --target "${targets[@]}"; } >"build/$1/demo.log" 2>&1; then
    tail -n 40 "build/$1/demo.log"
    exit 1
  fi
}

scripts/setup.sh ${setup[@]+"${setup[@]}"}
build "$preset"
[ "$preset" = release ] || [ -n "$device" ] || build release # the other system
program[-1]=${program[-1]/build\/$preset\//build\/$preset-demo\/}
camera[-1]=${camera[-1]/build\/$preset\//build\/$preset-demo\/}

work=$(mktemp -d "$PWD/build/demo.XXXXXX")
running=() # processes in the background
# What the demo started, it ends; nothing of it is left.
clean_up() {
  for process in ${running[@]+"${running[@]}"}; do kill "$process" 2>/dev/null || true; done
  [ -z "${link:-}" ] || rm -f "$link"
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  echo "demo: $1" >&2
  exit 1
}

# has_line TEXT LINE: whether the line is there.
has_line() {
  grep -qxF -- "$2" <<<"$1" || grep -qE -- "^[0-9]+ +$2\$" <<<"$1"
}

# expect TEXT LINE...: the lines have to be there.
expect() {
  local text=$1 line
  shift
  for line in "$@"; do
    has_line "$text" "$line" || fail "expected \"$line\""
  done
}

# print_command COMMAND...: what runs now, with what is typed into it.
print_command() {
  printf '\n$ '
  [ -z "${typed:-}" ] || printf "printf '%s' | " "$typed"
  printf '%s' "$1"
  shift
  [ $# -eq 0 ] || printf ' %s' "$@"
  printf '\n'
}

# show EXPECTED ARGUMENTS...: runs kyserial on the standard input; its output has to contain the expected line, or, in
# a table, a line that ends with it.
show() {
  local expected=$1 output attempt status
  shift
  for attempt in $(seq "$attempts"); do
    [ "$attempt" = 1 ] || echo "demo: once more" >&2
    print_command "$(basename "${program[-1]}")" "$@"
    status=0
    output=$(printf "${typed:-}" | "${program[@]}" "$@" | tr -d '\r') || status=$?
    printf '%s\n' "$output"
    if [ "$status" = 0 ] && has_line "$output" "$expected"; then
      return
    fi
  done
  fail "expected \"$expected\" and status 0; the status is $status"
}

# wait_until COMMAND...: until it succeeds, for a minute at most.
wait_until() {
  for _ in $(seq 600); do
    ! "$@" 2>/dev/null || return 0
    sleep 0.1
  done
  return 1
}

# map_com_port: two ptys that are connected with each other, one as a COM port of Wine, one for socat's user. Wine
# removes the links of ports that it does not know when it starts up, so this one is looked after.
map_com_port() {
  com_port=COM33
  link=${WINEPREFIX:-${XDG_CACHE_HOME:-$HOME/.cache}/kyserial-wine}/dosdevices/${com_port,,}
  socat "pty,raw,echo=0,link=$work/port" "pty,raw,echo=0,link=$work/terminal" &
  running+=($!)
  wait_until test -e "$work/terminal" || fail "socat makes no pty"
  scripts/wine.sh cmd /c ver >/dev/null 2>&1
  local port
  port=$(readlink "$work/port")
  while sleep 0.05; do [ "$(readlink "$link")" = "$port" ] || ln -sfn "$port" "$link"; done &
  running+=($!)
}

# is_relaying: whether the bridge has begun, or will not any more.
is_relaying() {
  grep -qF '"final":false' "$statistics" || ! kill -0 "$bridge"
}

# start_bridge ARGUMENTS...: "kyserial bridge" in the background, with its statistics in a file, once it relays.
start_bridge() {
  statistics=$work/statistics
  printf '\n$ %s bridge' "$(basename "${program[-1]}")"
  printf ' %s' "$@" --stats-json '&'
  printf '\n'
  for _ in $(seq 20); do
    : >"$statistics" # what the bridge before this one has written is not this one's
    "${program[@]}" bridge "$@" --stats-json </dev/null >"$statistics" 2>"$statistics.err" &
    bridge=$!
    running+=("$bridge")
    wait_until is_relaying || true
    ! grep -qF '"final":false' "$statistics" || return 0
    [ "$preset" = windows ] || break # Wine may still be setting its ports up
    sleep 0.5
  done
  fail "the bridge does not start: $(cat "$statistics.err")"
}

# end_bridge TEXT...: asks the bridge to end as Ctrl-C does; the texts have to be in its last statistics.
end_bridge() {
  local text last
  printf '\n$ kill -INT %%1\n'
  kill -INT "$bridge"
  wait "$bridge" || fail "the bridge ended with status $?: $(cat "$statistics.err")"
  unset 'running[-1]'
  last=$(tail -n 1 "$statistics" | tr -d '\r')
  printf '%s\n' "$last"
  for text in '"final":true' "$@"; do
    grep -qF -- "$text" <<<"$last" || fail "expected $text in the statistics"
  done
}

# type_to TERMINAL EXPECTED...: types through a terminal as a user would; the answers have to contain the lines.
type_to() {
  local terminal=$1 output
  shift
  print_command socat -t 2 - "$(basename "$terminal"),raw,echo=0"
  output=$(printf "$typed" | timeout 60 socat -t 2 - "$terminal,raw,echo=0" | tr -d '\r')
  printf '%s\n' "$output"
  expect "$output" "$@"
}

# start_camera PROGRAM...: a camera on this computer's own network, at a port that is free. Sets device.
start_camera() {
  local ready
  ready=$(mktemp "$work/camera.XXXXXX")
  printf '\n$ %s --port 0 --no-broadcast%s &\n' "$(basename "${@: -1}")" "${fast:+ $fast}"
  "$@" --port 0 --no-broadcast $fast </dev/null >"$ready" 2>&1 &
  running+=($!)
  wait_until grep -q 'ready at' "$ready" || fail "the camera does not start: $(cat "$ready")"
  tr -d '\r' <"$ready"
  device=gev://$(sed -n 's/.*ready at \([0-9.:]*\).*/\1/p' "$ready")
}

# The camera on the network keeps its memories for as long as it runs, the one in the program in a file.
if [ -n "$device" ]; then
  memory=(--device "$device" --sim-state "$work/memory")
else
  start_camera "${camera[@]}"
  memory=(--device "$device")
fi

show 'uart0  0      yes        register UART  UART               UART' ports --device "$device"

for port in uart0 bulk0 bulk1; do
  typed='ID?\r\nZOOM 1200\r\nFOCUS 340\r\nSTATUS?\r\n'
  show 'STATUS READY ZOOM 1200 FOCUS 340 IRIS 100' term --device "$device" --port "$port" ${patience[@]+"${patience[@]}"}
done

typed=
show '50: 50 -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ' i2c detect -y --retries 9 --device "$device" --port bulk2
typed='KySerial 24C02'
show '' i2c eeprom write -y --retries 9 --port bulk2 "${memory[@]}" -
typed=
show '00: 4b 79 53 65 72 69 61 6c 20 32 34 43 30 32 ff ff    KySerial 24C02..' \
  i2c dump -y --retries 9 -r 0x00-0x1f --port bulk2 "${memory[@]}" 0x50
show 'manufacturer 0xef, type 0x30, capacity 0x10 (65536 bytes, W25X05)' spi flash id --device "$device" --port bulk3

# The lens as a terminal of this machine. What is typed into it goes to the camera, and from there to the lens.
dialogue='ID?\r\nZOOM 1200\r\nFOCUS 340\r\nSTATUS?\r\n'
answers=('ID KYLENS 1.0' 'STATUS READY ZOOM 1200 FOCUS 340 IRIS 100')
counts=('"to_device":{"bytes":36,' '"from_device":{"bytes":66,')
if [ "$preset" = windows ]; then
  map_com_port
  start_bridge --device "$device" --port uart0 --com "$com_port" --baud 115200
  terminal=$work/terminal
else
  start_bridge --device "$device" --port uart0 --pty "$work/lens" --baud 115200
  terminal=$work/lens
fi
typed=$dialogue
type_to "$terminal" "${answers[@]}"
typed='STATUS?\r\n' # another user, later
type_to "$terminal" "${answers[1]}"
end_bridge '"to_device":{"bytes":45,' '"from_device":{"bytes":109,' '"baud_rate":115200'
[ ! -e "$work/lens" ] || fail "the terminal is still there"

# The lens as a Camera Link port: the client is another process, knows the client library only, and chooses the rate.
name=DemoLens$$
start_bridge --device "$device" --port bulk0 --clser "$name"
typed=
show "$name" clser list
typed=$dialogue
show "${answers[1]}" clser term "$name" --baud 38400 ${patience[@]+"${patience[@]}"}
end_bridge "${counts[@]}" '"baud_rate":38400'

# Whichever system a program or a camera runs on, they understand each other.
if [ "$preset" = windows ] && [ ${#memory[@]} -eq 2 ]; then
  typed=$dialogue
  other=("${program[@]}")
  program=(build/release-demo/bin/kyserial)
  show "${answers[1]}" term --device "$device" --port uart0 ${patience[@]+"${patience[@]}"}
  program=("${other[@]}")
  start_camera build/release-demo/bin/kyserial-camera
  show "${answers[1]}" term --device "$device" --port uart0 ${patience[@]+"${patience[@]}"}
fi

echo
echo "demo: every answer was the right one"

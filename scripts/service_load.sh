#!/usr/bin/env bash
# "kyserial serve" under load, under faults, and beside the programs that people use for the same; each in an optimised build and a
# network of its own where the system allows that.
#   scripts/service_load.sh load [OPTION...]        8 to 64 cameras of four ports with a stream each; see service_load.py
#   scripts/service_load.sh faults SECONDS [OPTION...]   one fault a second, then 10,000 connections; see service_faults.py
#   scripts/service_load.sh peers [OPTION...]       beside ser2net and socat; see service_peers.py
# Exit status 0: every byte was delivered or was counted as lost, and nothing grew. Figures fail nothing, but for load --strict.
set -euo pipefail
cd "$(dirname "$0")/.."
what=${1:-load}
[ $# -eq 0 ] || shift
case $what in
  load | faults | peers) ;;
  *) echo "service_load: use load, faults or peers" >&2; exit 2 ;;
esac
scripts/setup.sh
[ "$what" != peers ] || scripts/setup.sh --bench
mkdir -p build/release
if ! { cmake --preset release -DKYSERIAL_BUILD_TESTS=OFF -B build/release-soak &&
  cmake --build build/release-soak --target kyserial kyserial-camera KySerialC KyGigEC; } >build/release/service.log 2>&1; then
  tail -n 40 build/release/service.log
  exit 1
fi
arguments=(--tool build/release-soak/bin/kyserial --camera build/release-soak/bin/kyserial-camera)
[ "$what" != peers ] || arguments+=(--library "$PWD/build/release-soak/lib")
if [ "$what" = faults ] && [ $# -gt 0 ]; then
  arguments+=(--seconds "$1")
  shift
fi
own=(unshare --net)
[ "$(id -u)" = 0 ] || own=(unshare --net --map-root-user)
private=("${own[@]}" sh -c 'ip link set lo up && exec "$@"' sh)
# ser2net finds no address where there is the loopback network only.
{ [ "$what" != peers ] && "${private[@]}" true 2>/dev/null; } || private=()
exec ${private[@]+"${private[@]}"} python3 "scripts/service_$what.py" "${arguments[@]}" "$@"

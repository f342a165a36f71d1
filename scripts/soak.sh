#!/usr/bin/env bash
# Lets "kyserial bridge" run on both flavours, a pty and Camera Link clients, each on a simulated camera of its own, with
# random traffic and one fault a second, and accounts for every byte. See soak.py for the faults.
#   scripts/soak.sh [SECONDS]   10 unless given; the seed of the random numbers is KYSERIAL_SOAK_SEED or 1
# Exit status 0: every byte was delivered or was counted as lost, and memory and handles did not grow.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
mkdir -p build/release
if ! { cmake --preset release -DKYSERIAL_BUILD_TESTS=OFF -B build/release-soak &&
  cmake --build build/release-soak --target kyserial kyserial-camera clserzmo; } >build/release/soak.log 2>&1; then
  tail -n 40 build/release/soak.log
  exit 1
fi
# A session's registry has room for 32 names as long as a process uses it: a server that runs for an hour would use it up
# for every test that runs beside it. So this one gets a session of its own where the system allows that.
own=(unshare --mount)
[ "$(id -u)" = 0 ] || own=(unshare --mount --map-root-user)
private=("${own[@]}" sh -c 'mount -t tmpfs tmpfs /dev/shm && exec "$@"' sh)
"${private[@]}" true 2>/dev/null || private=()
exec ${private[@]+"${private[@]}"} python3 scripts/soak.py --seconds "${1:-10}" --seed "${KYSERIAL_SOAK_SEED:-1}" \
  --tool build/release-soak/bin/kyserial --camera build/release-soak/bin/kyserial-camera \
  --library build/release-soak/lib/libclserzmo.so

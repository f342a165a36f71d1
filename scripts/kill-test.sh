#!/usr/bin/env bash
# The long form of the tests that kill the transport's processes: after single instructions (the optimised build, as
# it ships; the C library's instructions are among them), and at random times.
#   scripts/kill-test.sh [deaths per case, default 1000] [random rounds per case, of which there are ten, default 1000]
set -eu
cd "$(dirname "$0")/.."
points=${1:-1000}
rounds=${2:-1000}
cmake --preset release >/dev/null
cmake --build --preset release --target ProcessesTest
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
KYSERIAL_KILL_POINTS=$points KYSERIAL_KILL_ROUNDS=$rounds build/release/bin/ProcessesTest \
    --gtest_filter='*KillStepTest*:*RandomKillTest*' | tee "$log" || status=$?
awk -v rounds="$rounds" '/ instructions, .* deaths, /{ deaths += $4; bad += $6 } / deaths at system calls/{ deaths += $2 }
    / OK .*RandomKillTest.* ms\)/{ random += rounds }
    END { printf "%d deaths at chosen places, %d bad; %d at random times\n", deaths, bad, random }' "$log"
exit "$status"

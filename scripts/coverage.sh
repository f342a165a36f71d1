#!/usr/bin/env bash
# Measures which lines and branches of Libraries/ the native tests run.
#   scripts/coverage.sh             builds, runs all tests, writes build/coverage/coverage.{txt,html} and the lines missed
#   scripts/coverage.sh REGEX       runs only the tests whose names match
# Branches are those of the sources: what a compiler adds for exceptions is not counted.
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --all --coverage || exit 1
jobs=${KYSERIAL_JOBS:-$(nproc)}
build=build/coverage
mkdir -p "$build"
flags="-g1 -O0 --coverage -fprofile-update=atomic"
if ! { cc -c -o "$build/flush.o" scripts/coverage_flush.c &&
  cmake --preset dev -B "$build" -DCMAKE_CXX_FLAGS_DEBUG="$flags" -DCMAKE_C_FLAGS_DEBUG="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="--coverage $PWD/$build/flush.o" -DCMAKE_SHARED_LINKER_FLAGS=--coverage &&
  cmake --build "$build" -j "$jobs"; } >"$build/build.log" 2>&1; then
  tail -n 40 "$build/build.log"
  exit 1
fi
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j "$jobs" ${1:+-R "$1"} >"$build/test.log" 2>&1 || tail -n 20 "$build/test.log"
python3 scripts/coverage.py "$build" "$build/coverage.json" || exit 1
gcovr --root . --add-tracefile "$build/coverage.json" --html-details "$build/coverage.html" --txt "$build/coverage.txt" \
  2>"$build/gcovr.log" || { tail -n 5 "$build/gcovr.log"; exit 1; }
sed -n '/^File/,$p' "$build/coverage.txt"
gcovr --root . --add-tracefile "$build/coverage.json" --branches --txt 2>/dev/null | tail -n 4

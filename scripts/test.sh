#!/usr/bin/env bash
# Builds and tests KySerial, and closes with one line that counts the tests of all builds.
#   scripts/test.sh                 the native build
#   scripts/test.sh all             the native build, the address and undefined-behaviour sanitizers, the thread sanitizer,
#                                   the Windows build under Wine, and the fuzz targets for 10 seconds each,
#                                   30 for those that take bytes of another process or of the network
#   scripts/test.sh dev windows     these presets only (dev, asan, tsan, windows, fuzz, release)
# Output of the builds and tests goes to build/<preset>/{build,test}.log and, on failure, to the terminal.
set -uo pipefail
cd "$(dirname "$0")/.."

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev)
[ "${presets[*]}" != all ] || presets=(dev asan tsan windows fuzz)
packages=--tests
[ "${presets[*]}" = dev ] || packages=--all
jobs=${KYSERIAL_JOBS:-$(nproc)}
test_jobs=$((jobs * 4)) # most tests wait more than they work

scripts/setup.sh "$packages" || exit 1

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
# The framework's own way to start a death test, on a stack of its own, ends silently beside the address sanitizer's
# look at returned stack frames.
export GTEST_DEATH_TEST_USE_FORK=1
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}

reports=()
broken=0
for preset in "${presets[@]}"; do
  log=build/$preset
  mkdir -p "$log"
  rm -rf "$log/report.xml" "$log/report-again.xml" "$log/cases" "$log/cases-again" "$log/cases-first"
  printf '== %s: building\n' "$preset"
  options=()
  # Nobody debugs the programs of CI. Lines, which reports of crashes name, take the compiler a tenth less time than variables.
  [ "$preset" != dev ] || [ -z "${KYSERIAL_CI:-}" ] || options=(-DCMAKE_C_FLAGS_DEBUG=-g1 -DCMAKE_CXX_FLAGS_DEBUG=-g1)
  if ! { cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" -j "$jobs"; } >"$log/build.log" 2>&1; then
    tail -n 60 "$log/build.log"
    printf '== %s: the build failed\n' "$preset"
    broken=$((broken + 1))
    continue
  fi
  if [ "$preset" = windows ]; then
    # Wine sets itself up with its first program; that must not count as a test's time. The server of that program has
    # to end first: only a new server can be made to stay for the whole run. A program that starts while an idle server
    # ends does not start at all.
    export WINEPREFIX=$PWD/build/wine
    scripts/wine.sh cmd /c ver >/dev/null 2>&1
    wineserver -w >/dev/null 2>&1
    wineserver -p >/dev/null 2>&1 || printf '== %s: the server of Wine does not stay\n' "$preset"
    # The next program starts Wine's services, which keep its output open. A reader of that output would wait for them.
    scripts/wine.sh cmd /c ver >/dev/null 2>&1
    trap 'wineserver -k >/dev/null 2>&1' EXIT
  fi
  printf '== %s: testing\n' "$preset"
  if ! ctest --preset "$preset" -j "$test_jobs" --output-junit "$PWD/$log/report.xml" >"$log/test.log" 2>&1 &&
    [ -n "${KYSERIAL_CI:-}" ]; then
    # On a machine that others use too, what failed gets a second chance; a test that needed it is named.
    [ ! -d "$log/cases" ] || mv "$log/cases" "$log/cases-first"
    ctest --preset "$preset" -j 1 --rerun-failed --output-junit "$PWD/$log/report-again.xml" >"$log/again.log" 2>&1
    [ ! -d "$log/cases" ] || mv "$log/cases" "$log/cases-again"
    [ ! -d "$log/cases-first" ] || mv "$log/cases-first" "$log/cases"
  fi
  grep -E '^(The following tests FAILED|[[:space:]]+[0-9]+ - .*\((Failed|Timeout|SEGFAULT|Not Run|.*ABORTED|ILLEGAL|NUMERICAL|OTHER_FAULT|Exit code.*)\))' "$log/test.log" || true
  if [ ! -s "$log/report.xml" ]; then
    tail -n 60 "$log/test.log"
    printf '== %s: the test run failed\n' "$preset"
    broken=$((broken + 1))
    continue
  fi
  python3 scripts/count_tests.py --failures "$log/report.xml"
  reports+=("$log/report.xml")
done

# A build or a run that gave no report counts as one failed test: it must not vanish from the sum.
python3 scripts/count_tests.py --broken "$broken" ${reports[@]+"${reports[@]}"}

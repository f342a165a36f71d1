#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a time, as many at once as there are processors.
#   scripts/fuzz.sh SECONDS [TARGET...]   all targets, or these (UartEvents, BulkEvents, ...)
#   scripts/fuzz.sh --runs N [TARGET...]  N executions of each, however long that takes
#   KYSERIAL_FUZZ_FAST=1                  without the sanitizers and twenty times as fast: for long runs. The checks of
#                                         the targets and the assertions of the libraries stay.
# Prints for each target the executions, the operations in them and the executions a second. New inputs are kept in
# build/<preset>/corpus, inputs that fail in build/<preset>/found-*: put those under a name that says what they did
# into Tests/Fuzz/Corpus/<target>. The exit status is 1 when something failed.
set -uo pipefail
cd "$(dirname "$0")/.."

usage="usage: scripts/fuzz.sh SECONDS | --runs N [TARGET...]"
if [ "${1:-}" = --runs ]; then
  shift
  limit=-runs=${1:?$usage}
else
  limit=-max_total_time=${1:?$usage}
fi
shift
scripts/setup.sh --all || exit 1
build=build/fuzz
options=()
if [ -n "${KYSERIAL_FUZZ_FAST:-}" ]; then
  build=build/fuzz-fast
  # The engine without its watch on the C library's comparisons.
  options=(-DKYSERIAL_SANITIZE=
    -DKYSERIAL_FUZZ_ENGINE="$(clang++ -print-file-name="libclang_rt.fuzzer-$(uname -m).a")"
    -DCMAKE_CXX_FLAGS_DEBUG="-O2 -g1 -fno-sanitize-coverage=trace-cmp,indirect-calls,stack-depth")
fi
mkdir -p "$build"
if ! { cmake --preset fuzz -B "$build" "${options[@]}" &&
  cmake --build "$build" --target fuzzers -j "${KYSERIAL_JOBS:-$(nproc)}"; } >"$build/build.log" 2>&1; then
  tail -n 60 "$build/build.log"
  exit 1
fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(cd "$build/bin" && ls Fuzz* | sed 's/^Fuzz//')

# The sanitizer keeps less of what was freed: these programs free a great deal.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=16:malloc_context_size=4:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
# Without the sanitizers: a run that takes a megabyte gives it to the next, not back to the system.
export MALLOC_MMAP_MAX_=${MALLOC_MMAP_MAX_:-0} MALLOC_TRIM_THRESHOLD_=${MALLOC_TRIM_THRESHOLD_:-268435456}
run() {
  local target=$1 log=$build/$1.log
  mkdir -p "$build/corpus/$target"
  if "$build/bin/Fuzz$target" "$limit" -max_len="${KYSERIAL_FUZZ_LENGTH:-256}" -entropic=0 -timeout=60 \
    -print_final_stats=1 -artifact_prefix="$build/found-$target-" "$build/corpus/$target" "Tests/Fuzz/Corpus/$target" \
    >"$log" 2>&1; then
    state=ok
  else
    state=FAILED
    tail -n 40 "$log"
  fi
  awk -v target="$target" -v state="$state" '/number_of_executed_units/ { runs = $2 } /number_of_steps/ { steps = $2 }
    /average_exec_per_sec/ { speed = $2 }
    END { printf "%-18s %-6s %12d executions %12d operations %8d a second\n", target, state, runs, steps, speed }' "$log"
  [ "$state" = ok ]
}
export -f run
export build limit
printf '%s\n' "${targets[@]}" | xargs -P "${KYSERIAL_JOBS:-$(nproc)}" -I{} bash -c 'run {}'

#!/usr/bin/env bash
# Measures the library beside its peers: futex, pipe, socket, Boost, socat, ser2net. Installs what it lacks of them.
#   scripts/bench.sh           all figures, under 10 minutes; build/bench/performance/ gets tables and pictures
#   scripts/bench.sh --quick   fewer and shorter runs, under a minute once it is built
#   scripts/bench.sh --write   all figures, into Docs/performance/
#   scripts/bench.sh --check   instructions of the hot paths beside Benchmarks/baseline.json: fails, and says where,
#                              when one has grown by more than 10 %
#   scripts/bench.sh --update-baseline   writes that file anew
# The Windows build is measured too when the cross compiler and Wine are there (not with --check).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --bench

if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
fi
build() { # folder, targets, options
  local folder=$1 targets=$2
  shift 2
  mkdir -p "$folder"
  # shellcheck disable=SC2086 # several targets
  { cmake -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKYSERIAL_BUILD_BENCHMARKS=ON -DKYSERIAL_BUILD_TESTS=OFF "$@" &&
    cmake --build "$folder" --target $targets; } >"$folder/build.log" 2>&1 ||
    { tail -n 30 "$folder/build.log"; exit 1; }
}

native="TransportBenchmark ServerBenchmark BridgeBenchmark RelayBenchmark WakeBenchmark EngineBenchmark HotPaths
NetworkBenchmark EvaluatorBenchmark KySerial kyserial kyserial-camera"
# --check builds the programs too: a compiler that optimises finds warnings that the tests' builds do not.
case " $* " in
  *" --check "*) native="HotPaths kyserial kyserial-camera" ;;
  *" --update-baseline "*) native=HotPaths ;;
esac
build build/bench "$native"
arguments=(--binaries build/bench/bin "$@")
case " $* " in
  *" --check "* | *" --update-baseline "*) ;;
  *)
    if command -v x86_64-w64-mingw32-g++-posix >/dev/null && command -v wine >/dev/null; then
      build build/bench-windows "TransportBenchmark WaitBenchmark IdleBenchmark kyserial" \
        --toolchain cmake/mingw-w64-x86_64.cmake
      export WINEPREFIX=$PWD/build/wine
      arguments+=(--wine build/bench-windows/bin)
    fi
    ;;
esac
exec python3 -B Benchmarks/bench.py "${arguments[@]}"

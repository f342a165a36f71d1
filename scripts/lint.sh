#!/usr/bin/env bash
# Checks layers (layers.py), format (clang-format) and habits (clang-tidy, names included) of all sources.
#   scripts/lint.sh            all files
#   scripts/lint.sh --product  the format of all files, the habits of what is not a test: under half the time
#   scripts/lint.sh FILE...    these files
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --all || exit 1

skip='^$'
if [ "${1:-}" = --product ]; then
  skip='^(Tests|Benchmarks)/'
  shift
fi
if [ $# -gt 0 ]; then
  files=("$@")
else
  mapfile -t files < <(git ls-files '*.h' '*.cpp')
fi
scripts/layers.py || exit 1
mkdir -p build
clang-format --dry-run -Werror "${files[@]}" || exit 1

# Configured on its own: clang-tidy cannot read the other compiler's precompiled headers.
cmake --preset dev -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DKYSERIAL_UNITY=OFF >build/lint-configure.log 2>&1 ||
  { tail -n 20 build/lint-configure.log; exit 1; }
# Only what the native build compiles: clang-tidy needs to know how.
mapfile -t sources < <(python3 - "${files[@]}" <<'PY'
import json, os, sys
built = {os.path.relpath(entry["file"]) for entry in json.load(open("build/lint/compile_commands.json"))}
print("\n".join(file for file in sys.argv[1:] if file.endswith(".cpp") and file in built))
PY
)
mapfile -t sources < <(printf '%s\n' "${sources[@]}" | grep -vE "$skip")
printf '%s\n' "${sources[@]}" | xargs -r -P "$(nproc)" -n 1 clang-tidy -p build/lint --quiet 2>/dev/null |
  grep -E '(warning|error):' | sort -u >build/lint.log
if [ -s build/lint.log ]; then
  cat build/lint.log
  exit 1
fi
echo "lint: ${#files[@]} files formatted, ${#sources[@]} sources checked"

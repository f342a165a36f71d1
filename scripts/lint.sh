#!/usr/bin/env bash
# Checks layers (layers.py), format (clang-format) and habits (clang-tidy, names included) of all sources.
#   scripts/lint.sh            all files
#   scripts/lint.sh --product  the format of all files, the habits of what is not a test: under half the time
#   scripts/lint.sh --changed [BASE]  the files that differ from where this branch left BASE (main)
#   scripts/lint.sh FILE...    these files
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --all || exit 1

skip='^$'
if [ "${1:-}" = --product ]; then
  skip='^(Tests|Benchmarks)/'
  shift
fi
if [ "${1:-}" = --changed ]; then
  base=$(git merge-base "${2:-main}" HEAD) || exit 1
  mapfile -t files < <(git diff --name-only --diff-filter=d "$base" -- '*.h' '*.cpp')
  # The habits of a header are looked at through its source.
  for file in "${files[@]}"; do
    [ "${file%.h}" != "$file" ] && [ -f "${file%.h}.cpp" ] && files+=("${file%.h}.cpp")
  done
  mapfile -t files < <(printf '%s\n' "${files[@]}" | sort -u | sed '/^$/d')
  [ ${#files[@]} -gt 0 ] || { echo "lint: nothing has changed"; exit 0; }
elif [ $# -gt 0 ]; then
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

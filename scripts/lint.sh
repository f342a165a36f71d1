#!/usr/bin/env bash
# Checks layers (layers.py), format (clang-format) and habits (clang-tidy, names included) of all sources.
#   scripts/lint.sh            all files
#   scripts/lint.sh --product  the format of all files, the habits of what is not a test: under half the time
#   scripts/lint.sh --changed [BASE]  the files that differ from where this branch left BASE (main)
#   scripts/lint.sh --quick ...  the same without clang's analyzer, in a sixth of the time; before the other options
#   scripts/lint.sh FILE...    these files
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --all && scripts/setup.sh --bench || exit 1 # the benchmarks are looked at too

skip='^$'
export checks=
if [ "${1:-}" = --quick ]; then
  checks=-clang-analyzer-*
  shift
fi
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
cmake --preset dev -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DKYSERIAL_UNITY=OFF \
  -DKYSERIAL_BUILD_BENCHMARKS=ON >build/lint-configure.log 2>&1 ||
  { tail -n 20 build/lint-configure.log; exit 1; }
# Only what the native build compiles: clang-tidy needs to know how. The rest is counted.
mapfile -t sources < <(printf '%s\n' "${files[@]}" | grep '\.cpp$' | grep -vE "$skip")
mapfile -t sources < <(python3 - "${sources[@]}" <<'PY'
import json, os, sys
# Once each: clang-tidy would look at a source of two libraries twice.
built = {os.path.relpath(entry["file"]): entry for entry in json.load(open("build/lint/compile_commands.json"))}
os.makedirs("build/lint/once", exist_ok=True)
json.dump(list(built.values()), open("build/lint/once/compile_commands.json", "w"))
for file in sys.argv[1:]:
    print(("built " if file in built else "other ") + file)
PY
)
mapfile -t others < <(printf '%s\n' "${sources[@]}" | sed -n 's/^other //p')
mapfile -t sources < <(printf '%s\n' "${sources[@]}" | sed -n 's/^built //p')

# One source. A clang-tidy that ends without a word, killed for its memory say, has checked nothing.
check() {
  local text status
  text=$(clang-tidy -p build/lint/once --quiet ${checks:+"--checks=$checks"} "$1" 2>/dev/null)
  status=$?
  printf '%s\n' "$text" | grep -E '(warning|error):' && return
  [ $status -eq 0 ] && echo "checked: $1" || echo "$1: error: clang-tidy ended with status $status"
}
export -f check
printf '%s\n' "${sources[@]}" | xargs -r -P "$(nproc)" -n 1 bash -c 'check "$1"' check | sort -u >build/lint.log
clean=$(grep -c '^checked: ' build/lint.log)
grep -v '^checked: ' build/lint.log
echo "lint: ${#files[@]} files formatted; of ${#sources[@]} sources $clean are clean" \
  "(headers are checked through them); ${#others[@]} more are compiled on another system or in no build"
[ "$clean" -eq ${#sources[@]} ]

#!/usr/bin/env bash
# Makes the reference of the installed headers with doxygen: HTML in FOLDER/html. Fails on any warning.
#   scripts/reference.sh [FOLDER, default build/reference]
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1:-build/reference}")
mkdir -p "$folder"
{ cat Docs/Doxyfile; echo "OUTPUT_DIRECTORY = \"$folder\""; } | doxygen - 2>"$folder/warnings.txt"
if [ -s "$folder/warnings.txt" ]; then
  cat "$folder/warnings.txt" >&2
  exit 1
fi
echo "reference: $(find "$folder/html" -name '*.html' | wc -l) pages in $folder/html"

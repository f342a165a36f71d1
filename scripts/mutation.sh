#!/usr/bin/env bash
# Breaks places of the libraries one at a time and shows that some test fails for each; see mutation.py.
cd "$(dirname "$0")/.." || exit 1
scripts/setup.sh --all || exit 1
exec python3 scripts/mutation.py "$@"

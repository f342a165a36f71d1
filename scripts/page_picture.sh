#!/usr/bin/env bash
# Makes Docs/service-page.png, the picture of the service's web page, with the browser that scripts/setup.sh --all --page installs.
# Takes a minute: the sparklines need something to show.
#   scripts/page_picture.sh [KYSERIAL]    the program; build/dev/bin/kyserial unless given
set -euo pipefail
cd "$(dirname "$0")/.."
python3 -B Tests/Serve/judge_page.py "${1:-build/dev/bin/kyserial}" "$(command -v chromium)" --picture Docs/service-page.png

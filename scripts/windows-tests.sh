#!/usr/bin/env bash
# Runs the Windows test suite under Wine on the X display this script is given (xvfb-run),
# with the screenshot watcher the tests ask for pictures.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/screenshots.sh"
start_screenshot_watcher "$root/build/win64/artifacts"
trap 'kill $watcher 2>/dev/null; WINEPREFIX="$root/build/wineprefix" /usr/lib/wine/wineserver -k 2>/dev/null' EXIT

ctest --preset win64

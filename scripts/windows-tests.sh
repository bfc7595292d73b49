#!/usr/bin/env bash
# Runs the Windows test suite under Wine on the X display this script is given (xvfb-run).
# While the tests run, a watcher takes screenshots with xwd when a test asks for one: the test
# writes NAME.request in the artefact folder and waits for NAME.png.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
artifacts="$root/build/win64/artifacts"
mkdir -p "$artifacts"
rm -f "$artifacts"/*.request

watch_shots() {
    while :; do
        for req in "$artifacts"/*.request; do
            [ -e "$req" ] || continue
            name=$(basename "$req" .request)
            xwd -root -silent | /usr/bin/convert xwd:- "$artifacts/$name.png.tmp.png" 2>/dev/null &&
                mv "$artifacts/$name.png.tmp.png" "$artifacts/$name.png"
            rm -f "$req"
        done
        sleep 0.2
    done
}
watch_shots &
watcher=$!
trap 'kill $watcher 2>/dev/null; WINEPREFIX="$root/build/wineprefix" /usr/lib/wine/wineserver -k 2>/dev/null' EXIT

ctest --preset win64

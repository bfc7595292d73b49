#!/usr/bin/env bash
# Sourced by the scripts that run Windows tests under Wine: start_screenshot_watcher DIR takes a
# screenshot with xwd when a test asks for one (it writes NAME.request in DIR and waits for
# NAME.png) and sets $watcher to the watcher's process id.
start_screenshot_watcher() {
    local artifacts=$1
    mkdir -p "$artifacts"
    rm -f "$artifacts"/*.request
    (
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
    ) &
    watcher=$!
}

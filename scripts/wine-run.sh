#!/usr/bin/env bash
# Runs a Windows program of the build under Wine64 in the project's own Wine prefix.
# ctest uses it as the cross-compiling emulator; it also serves by hand: wine-run.sh prog.exe args
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${WINEPREFIX:-$root/build/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
# No Mono or Gecko: the prefix must come up without asking to download them.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
wine=/usr/lib/wine/wine64
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    "$wine" wineboot --init >/dev/null 2>&1 || true
    # Xvfb has no window manager: Wine draws the title bars and frames itself, so screenshots
    # show windows as a user sees them.
    "$wine" reg add 'HKCU\Software\Wine\X11 Driver' /v Decorated /d N /f >/dev/null 2>&1 || true
    "$wine" reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1 || true
    /usr/lib/wine/wineserver -w || true
fi
exec "$wine" "$@"

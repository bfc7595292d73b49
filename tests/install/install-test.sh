#!/usr/bin/env bash
# The x86_64 setup program under Wine, as a QuickBooks user's machine meets it: a silent install
# into a fresh prefix, the installed Pelmark sorting an invoice in the fake QuickBooks (started
# from its Start-menu entry, by InstalledProgramTest in pelmark_tests), an install over it that
# keeps the user's files, a silent uninstall, and an install into a folder the user chose whose
# uninstall removes only Pelmark's files. Run on an X display (xvfb-run) after the win64 build.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build="$root/build/win64"
setup=$(ls "$build"/Pelmark-*-x86_64-setup.exe 2>/dev/null | head -n 1)
[ -n "$setup" ] || { echo "install-test: no setup program in $build (build target installer)"; exit 1; }
export WINEPREFIX="$build/install-prefix"
wine() { "$root/scripts/wine-run.sh" "$@"; }
. "$root/scripts/screenshots.sh"
start_screenshot_watcher "$build/artifacts"
trap 'kill $watcher 2>/dev/null; /usr/lib/wine/wineserver -k 2>/dev/null' EXIT

failures=0
check() {  # check DESCRIPTION COMMAND...
    if "${@:2}"; then echo "  ok: $1"; else echo "  FAILED: $1"; failures=$((failures + 1)); fi
}
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Pelmark'
key_value() { wine reg query "$uninstall_key" /v "$1" 2>/dev/null | tr -d '\r' | awk -v n="$1" '$1 == n {print $3}'; }
# NSIS uninstallers copy themselves to the temporary folder and return at once: wait for all.
wait_wine() { /usr/lib/wine/wineserver -w; }

rm -rf "$WINEPREFIX"
c="$WINEPREFIX/drive_c"
program="$c/Program Files/Corvalt/Pelmark"
data="$c/users/Public/Documents/Corvalt/Pelmark"
menu="$c/ProgramData/Microsoft/Windows/Start Menu/Programs"
version=$(sed -n 's/^project(Pelmark VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")

echo "== silent install of $(basename "$setup")"
wine "$setup" /S; wait_wine
for f in pelmark.exe pelmark-cli.exe uninstall.exe Guide/user-guide.html Samples/Pelmark.ini; do
    check "installed $f" test -f "$program/$f"
done
check "data folder made" test -d "$data"
check "Start-menu entry" test -f "$menu/Pelmark.lnk"
check "Apps & features: version $version" test "$(key_value DisplayVersion)" = "$version"
check "Apps & features: publisher" test "$(key_value Publisher)" = "Corvalt"
check "Apps & features: size" test -n "$(key_value EstimatedSize)"
check "Apps & features: uninstaller" test -n "$(key_value UninstallString)"

echo "== the installed program sorts an invoice"
# Settings a user saved earlier: sort by item, agreement accepted, a full debug log.
printf ';Ver=%s\r\n[frmMain]\r\ncboSortField(0)=Item Full Name\r\nchkEUAAccepted=1\r\ntxtDebugLevel=5\r\n' \
    "$version" >"$data/Pelmark.ini"
PELMARK_SETUP="$setup" wine "$build/pelmark_tests.exe" --gtest_brief=1 --gtest_filter='InstalledProgramTest.*'
check "installed program test passed" test $? -eq 0
wait_wine
# The debug log's first line names the program's folder and file: the Start-menu entry's target.
check "the Start-menu entry started the installed program" \
    grep -qaF 'C:\Program Files\Corvalt\Pelmark\ pelmark.exe' "$data"/Debug_*.Log

echo "== install over the installed version keeps the user's files"
echo "journal" >"$data/journal-test.txt"
settings_before=$(md5sum <"$data/Pelmark.ini")
wine "$setup" /S; wait_wine
check "settings unchanged" test "$(md5sum <"$data/Pelmark.ini")" = "$settings_before"
check "journal kept" test -f "$data/journal-test.txt"

echo "== silent uninstall"
wine "$program/uninstall.exe" /S; wait_wine
check "program folder removed" test ! -e "$program"
check "Start-menu entry removed" test ! -e "$menu/Pelmark.lnk"
check "Apps & features entry removed" test -z "$(key_value DisplayVersion)"
check "settings kept" test -f "$data/Pelmark.ini"
check "journal kept" test -f "$data/journal-test.txt"
check "logs kept" compgen -G "$data/Debug_*.Log" >/dev/null

echo "== a folder the user chose, holding a file of the user's"
mkdir -p "$c/Tools"
echo "mine" >"$c/Tools/notes.txt"
wine "$setup" /S '/D=C:\Tools'; wait_wine
check "installed into C:\\Tools" test -f "$c/Tools/pelmark.exe"
wine "$c/Tools/uninstall.exe" /S; wait_wine
check "uninstall removed the program" test ! -e "$c/Tools/pelmark.exe" -a ! -e "$c/Tools/Guide"
check "uninstall kept the user's file" test -f "$c/Tools/notes.txt"

[ $failures -eq 0 ] && echo "== install test passed" || echo "== install test: $failures failed"
[ $failures -eq 0 ]

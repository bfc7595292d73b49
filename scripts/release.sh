#!/usr/bin/env bash
# Builds what is handed to users into dist/: the setup program and a portable zip for each
# bitness (x86_64 for QuickBooks 2022 and later, i686 for older QuickBooks), and SHA256SUMS.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
jobs=$(nproc 2>/dev/null || echo 2)

bash scripts/setup.sh
version=$(sed -n 's/^project(Pelmark VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
dist="$root/dist"
rm -rf "$dist"
mkdir -p "$dist"

for preset in win64 win32; do
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs" --target pelmark pelmark_cli installer
    build="$root/build/$preset"
    arch=$([ "$preset" = win64 ] && echo x86_64 || echo i686)
    cp "$build/Pelmark-$version-$arch-setup.exe" "$dist/"

    # The portable zip holds what the setup installs, in the same folders.
    stage="$build/portable/Pelmark-$version-$arch"
    rm -rf "$build/portable"
    mkdir -p "$stage/Guide" "$stage/Samples"
    cp "$build/pelmark.exe" "$build/pelmark-cli.exe" "$stage/"
    cp "$build"/guide/* "$stage/Guide/"
    cp samples/Pelmark.ini samples/Items.iif "$stage/Samples/"
    (cd "$build/portable" && zip -q -r -X "$dist/Pelmark-$version-$arch-portable.zip" .)
done

(cd "$dist" && sha256sum -- *.exe *.zip >SHA256SUMS)
echo "== dist/"
(cd "$dist" && for f in *; do printf '%12s  %s\n' "$(stat -c %s "$f")" "$f"; done)

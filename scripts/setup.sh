#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian 12 machine, then builds the libraries
# that Debian ships only for Linux (pugixml, GoogleTest) for the two MinGW-w64 targets.
# Safe to run again: each step is skipped when its result is already there.
# With --native-only it installs just what the native build needs (the demo).
set -euo pipefail
native_only=0
[ "${1:-}" = "--native-only" ] && native_only=1
root=$(cd "$(dirname "$0")/.." && pwd)
deps="$root/build/deps"

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }

packages=(cmake ninja-build g++ python3 pkg-config libpugixml-dev googletest libgtest-dev libbenchmark-dev libicu-dev)
[ $native_only -eq 1 ] || packages+=(
    g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix
    wine64 xvfb xauth x11-apps imagemagick
    clang libclang-rt-14-dev  # the libFuzzer targets (scripts/fuzz.sh)
    nsis python3-markdown zip
)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
fi

if [ $native_only -eq 1 ]; then
    echo "setup: ready (native)"
    exit 0
fi

# pugixml for MinGW is compiled from Debian's own source package, which needs a deb-src entry.
mkdir -p "$deps/src"
pugi_src=$(ls -d "$deps"/src/pugixml-*/ 2>/dev/null | head -n 1 || true)
if [ -z "$pugi_src" ]; then
    codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
    srcfile=/etc/apt/sources.list.d/pelmark-deb-src.sources
    if ! grep -rqs '^Types:.*deb-src' /etc/apt/sources.list.d/ && ! grep -qs '^deb-src' /etc/apt/sources.list; then
        printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: %s\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
            "$codename" | as_root tee "$srcfile" >/dev/null
        as_root apt-get update -qq
    fi
    (cd "$deps/src" && apt-get source --download-only -qq pugixml >/dev/null)
    tar -xf "$(ls "$deps"/src/pugixml_*.orig.tar.* | head -n 1)" -C "$deps/src"
    pugi_src=$(ls -d "$deps"/src/pugixml-*/ | head -n 1)
fi

build_for() {  # build_for TRIPLE TOOLCHAIN
    local triple=$1 toolchain=$2 prefix="$deps/$1"
    if [ ! -f "$prefix/.pugixml-done" ]; then
        cmake -S "$pugi_src" -B "$deps/build/pugixml-$triple" -G Ninja -DCMAKE_BUILD_TYPE=Release \
            -DCMAKE_TOOLCHAIN_FILE="$root/cmake/$toolchain" -DCMAKE_INSTALL_PREFIX="$prefix" \
            -DBUILD_SHARED_LIBS=OFF -DPUGIXML_BUILD_TESTS=OFF >/dev/null
        cmake --build "$deps/build/pugixml-$triple" --target install >/dev/null
        touch "$prefix/.pugixml-done"
    fi
    if [ ! -f "$prefix/.gtest-done" ]; then
        cmake -S /usr/src/googletest -B "$deps/build/gtest-$triple" -G Ninja -DCMAKE_BUILD_TYPE=Release \
            -DCMAKE_TOOLCHAIN_FILE="$root/cmake/$toolchain" -DCMAKE_INSTALL_PREFIX="$prefix" \
            -DBUILD_SHARED_LIBS=OFF -DBUILD_GMOCK=ON -Dgtest_force_shared_crt=OFF >/dev/null
        cmake --build "$deps/build/gtest-$triple" --target install >/dev/null
        touch "$prefix/.gtest-done"
    fi
}
build_for x86_64-w64-mingw32 mingw-x86_64.cmake
build_for i686-w64-mingw32 mingw-i686.cmake
echo "setup: ready"

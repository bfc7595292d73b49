#!/usr/bin/env bash
# Builds everything and runs every test: the native suite under AddressSanitizer (leaks
# included) and UndefinedBehaviorSanitizer, each fuzz target for 20 seconds, then the Windows
# builds, whose tests run under Wine64 and Xvfb.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
jobs=$(nproc 2>/dev/null || echo 2)

bash scripts/setup.sh

echo "== native build and tests (ASan + UBSan)"
cmake --preset dev >/dev/null
cmake --build --preset dev -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --preset dev -j "$jobs"

echo "== fuzzing: each reader 20 seconds under ASan + UBSan (clang, libFuzzer, fixed seed)"
bash scripts/fuzz.sh 20

echo "== native release build (command line and benchmarks)"
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"

echo "== Windows i686 build and setup program"
cmake --preset win32 >/dev/null
cmake --build --preset win32 -j "$jobs"

echo "== Windows x86_64 build, setup program and tests under Wine64 + Xvfb"
cmake --preset win64 >/dev/null
cmake --build --preset win64 -j "$jobs"
xvfb-run -a -s "-screen 0 1280x1024x24" bash scripts/windows-tests.sh

echo "== x86_64 setup program: install, sort and uninstall under Wine64 + Xvfb"
xvfb-run -a -s "-screen 0 1280x1024x24" bash tests/install/install-test.sh

echo "== all tests passed; screenshots in build/win64/artifacts"

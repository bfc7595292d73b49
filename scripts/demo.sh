#!/usr/bin/env bash
# The main job: builds the command-line program and runs the demo against the sample company.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh --native-only
cmake --preset release >/dev/null
cmake --build --preset release --target pelmark_cli -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
rm -rf "$root/build/demo/data"
exec build/release/pelmark demo --data-dir "$root/build/demo/data" "$@"

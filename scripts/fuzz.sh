#!/usr/bin/env bash
# Builds the libFuzzer targets (preset "fuzz": clang, ASan, UBSan) and runs each for SECONDS
# (default 20) from its seed corpus with a fixed seed, so that a run in CI can be repeated.
# A crash, a leak, a hang (10 s on one input) or an abort fails the script; the input that did it
# is left in build/fuzz/runs/TARGET/. Prints executions and coverage per target.
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]   (targets: settings iif response sendKeys like qbsim)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
seconds=${1:-20}
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(settings iif response sendKeys like qbsim)
jobs=$(nproc 2>/dev/null || echo 2)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs" --target "${targets[@]/#/fuzz_}"

# Seeds beyond fuzz/corpus/TARGET: the project's own files of that kind.
extra_seeds() {
    case $1 in
    settings) echo samples/Pelmark.ini tests/data/*.ini ;;
    iif) echo samples/Items.iif ;;
    esac
}

runs=build/fuzz/runs
printf '%-10s %12s %8s %8s\n' target executions cov ft
for t in "${targets[@]}"; do
    work=$runs/$t
    rm -rf "$work"
    mkdir -p "$work/corpus"
    # shellcheck disable=SC2046
    cp fuzz/corpus/"$t"/* $(extra_seeds "$t") "$work/corpus/"
    if ! ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "build/fuzz/fuzz_$t" "$work/corpus" -seed=1 -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -max_len=65536 -artifact_prefix="$work/" -print_final_stats=1 \
        >"$work/log" 2>&1; then
        tail -n 60 "$work/log"
        echo "fuzz: $t failed; the input is in $work/ (run build/fuzz/fuzz_$t FILE to repeat it)"
        exit 1
    fi
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
    cov=$(grep -E '^#[0-9]+.*cov: ' "$work/log" | tail -n 1 | sed -E 's/.*cov: ([0-9]+) ft: ([0-9]+).*/\1 \2/')
    printf '%-10s %12s %8s %8s\n' "$t" "$execs" ${cov:-? ?}
done

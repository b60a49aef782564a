#!/bin/bash
# Fuzzes the target "alert" for SECONDS and each other one for a quarter of that, as many at a time as there are cores. New
# inputs are collected in build/fuzz/inputs/TARGET; an input that fails a target is left in build/fuzz/failed-TARGET-*.
#
#   tools/fuzz.sh [SECONDS] [TARGET...]    60 seconds and all targets by default
#   tools/fuzz.sh --dictionary             rewrites fuzz/alert.dict from the decoders' key tables
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

if [ "${1-}" = --dictionary ]; then
    {
        echo '# Keys of alert documents and texts that the code compares with; made by tools/fuzz.sh --dictionary.'
        grep -ohE '"[A-Za-z][A-Za-z0-9_]*"' src/decode/*.cpp | grep -vE '"(error|pj[A-Z].*|bool)"' | sort -u
        printf '"\\"%s\\""\n' Verbose Low Medium High Critical Enable Disable Verify Trigger XDR-IOA- host
    } >fuzz/alert.dict
    exit 0
fi

seconds="${1:-60}"
[ $# -eq 0 ] || shift
tools/build.sh fuzz

targets=("$@")
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(ls fuzz/corpus)

# The leak checker looks once, at the end: after each input it would take a hundred times as long as the input.
fuzz_one() {
    local target="$1" inputs="build/fuzz/inputs/$1" log="build/fuzz/fuzz-$1.log"
    mkdir -p "$inputs"
    local options=(-timeout=20 -rss_limit_mb=4096 -max_len=65536
        -artifact_prefix="build/fuzz/failed-$target-" -print_final_stats=1 -detect_leaks=0)
    if [ "$target" = alert ] || [ "$target" = check ]; then
        options+=(-dict=fuzz/alert.dict)
    fi
    if [ "$target" = alert ]; then
        options+=(-max_total_time="$seconds")
    else
        options+=(-max_total_time=$(((seconds + 3) / 4)))
    fi
    if "build/fuzz/fuzz/fuzz_$target" "${options[@]}" "$inputs" "fuzz/corpus/$target" >"$log" 2>&1; then
        awk -v t="$target" '/number_of_executed_units/ { n = $2 } / cov: / { c = $0 }
            END { sub(/.* cov: /, "", c); sub(/ .*/, "", c); print "fuzz.sh: " t ": " n " inputs, " c " edges, clean" }' "$log"
    else
        tail -n 40 "$log" >&2
        echo "fuzz.sh: $target failed, see $PWD/$log" >&2
        return 1
    fi
}
export -f fuzz_one
export seconds
export ASAN_OPTIONS="detect_stack_use_after_return=1:allocator_may_return_null=1"
printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} bash -c 'fuzz_one {}'

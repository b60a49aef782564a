#!/bin/bash
# Fuzzes each target for SECONDS, two at a time. New inputs are collected in build/fuzz/inputs/TARGET; an input that fails a
# target is left in build/fuzz/failed-TARGET-*. Prints a line for each target; exits 1 when one has failed.
#
#   tools/fuzz.sh [SECONDS] [TARGET...]    60 seconds and all targets by default
#   tools/fuzz.sh --keep [TARGET...]       rewrites fuzz/corpus with as few of the inputs as reach the same code; those
#                                          with a name of their own stay
#   tools/fuzz.sh --dictionary             rewrites fuzz/alert.dict from the decoders' key tables
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
cd "$root"

if [ "${1-}" = --dictionary ]; then
    # Words of the code, and names of objects that are no keys as well.
    no_key='"(error|pj[A-Z].*|bool|document|message|post_operation|scenario|scenario_holder)"'
    {
        echo '# Keys of alert documents and texts that the code compares with; made by tools/fuzz.sh --dictionary.'
        grep -ohE '"[A-Za-z][A-Za-z0-9_]*"' src/decode/*.cpp | grep -vE "$no_key" | sort -u
        printf '"\\"%s\\""\n' Verbose Low Medium High Critical Enable Disable Verify Trigger XDR-IOA- host
    } >fuzz/alert.dict
    exit 0
fi

mode=fuzz_one
seconds=60
if [ "${1-}" = --keep ]; then
    mode=keep_one
    shift
elif [ $# -gt 0 ]; then
    seconds="$1"
    [[ "$seconds" =~ ^[1-9][0-9]*$ ]] || {
        echo "fuzz.sh: '$seconds' is no number of seconds (usage: tools/fuzz.sh [SECONDS|--keep] [TARGET...])" >&2
        exit 2
    }
    shift
fi
mapfile -t all < <(ls fuzz/corpus)
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${all[@]}")
for target in "${targets[@]}"; do
    [ -f "fuzz/fuzz_$target.cpp" ] || {
        echo "fuzz.sh: unknown target '$target'; known: ${all[*]}" >&2
        exit 2
    }
done
tools/build.sh fuzz "${targets[@]/#/fuzz_}"

# The leak checker looks once, at the end: after each input it would take a hundred times as long as the input.
fuzz_one() {
    local target="$1" inputs="$build/fuzz/inputs/$1" log="$build/fuzz/fuzz-$1.log"
    mkdir -p "$inputs"
    local options=(-max_total_time="$seconds" -timeout=60 -rss_limit_mb=4096 -max_len=65536
        -artifact_prefix="$build/fuzz/failed-$target-" -print_final_stats=1 -detect_leaks=0)
    case "$target" in alert | check | native | refused_memory) options+=(-dict=fuzz/alert.dict) ;; esac
    if "$build/fuzz/fuzz/fuzz_$target" "${options[@]}" "$inputs" "fuzz/corpus/$target" >"$log" 2>&1; then
        awk -v t="$target" '/number_of_executed_units/ { n = $2 } / cov: / { c = $0 }
            END { sub(/.* cov: /, "", c); sub(/ .*/, "", c); print "fuzz.sh: " t ": " n " inputs, " c " edges, clean" }' "$log"
    else
        tail -n 40 "$log" >&2
        echo "fuzz.sh: $target failed, see $PWD/$log" >&2
        return 1
    fi
}

# The names of a merge are hashes of 40 digits. How often a place is reached does not count, or the corpora would be large.
keep_one() {
    local target="$1" corpus="fuzz/corpus/$1" log="$build/fuzz/keep-$1.log" kept
    kept="$(mktemp -d "$build/fuzz/keep-$target-XXXXXX")"
    mkdir -p "$build/fuzz/inputs/$target"
    local options=(-set_cover_merge=1 -use_counters=0 -timeout=60 -rss_limit_mb=4096 -max_len=65536 -detect_leaks=0)
    if ! "$build/fuzz/fuzz/fuzz_$target" "${options[@]}" "$kept" "$corpus" "$build/fuzz/inputs/$target" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "fuzz.sh: $target was not merged, see $PWD/$log" >&2
        return 1
    fi
    find "$corpus" -type f -regextype posix-extended -regex '.*/[0-9a-f]{40}' -delete
    # What has a name of its own is not kept a second time under its hash.
    local named
    for named in "$corpus"/*; do
        [ -f "$named" ] && rm -f "$kept/$(sha1sum <"$named" | cut -d' ' -f1)"
    done
    find "$kept" -type f -exec mv -t "$corpus" {} +
    rmdir "$kept"
    echo "fuzz.sh: $target: $(find "$corpus" -type f | wc -l) files, $(du -bs "$corpus" | cut -f1) bytes"
}
export build
export -f fuzz_one keep_one
export seconds
export ASAN_OPTIONS="detect_stack_use_after_return=1:allocator_may_return_null=1"
printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c "$mode {}" || exit 1

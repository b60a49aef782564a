#!/bin/bash
# Fails each call that the plug-in's code makes in a short scenario with every road and that can fail: allocations, files,
# libraries and their symbols, threads, mutexes, settings. One fails in each run. Checks that it costs what it may cost, most
# often the event in hand, and nothing else. Prints one line for each fault, then "N calls, N runs, N faults". Fails when
# there is a fault; wrong arguments are exit code 2.
#
#   tools/fail_calls.sh                 all
#   tools/fail_calls.sh --every 20      every 20th
#   tools/fail_calls.sh --from 300      from the 300th on
#   tools/fail_calls.sh --only 123      one, with all that its run wrote
#   tools/fail_calls.sh asan ...        under the address sanitizer, which looks for what is left behind
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

preset=release
if [ "${1-}" = asan ]; then
    preset=asan
    shift
fi
tried="$*"
while [ $# -gt 0 ]; do
    if [[ ! "$1" =~ ^--(every|from|only)$ || ! "${2-}" =~ ^[1-9][0-9]*$ ]]; then
        echo "fail_calls.sh: cannot read '$tried' (usage: tools/fail_calls.sh [asan] [--every K] [--from N] [--only N])" >&2
        exit 2
    fi
    shift 2
done
"$root/tools/build.sh" "$preset" call_sweep
export ASAN_OPTIONS="detect_stack_use_after_return=1:strict_string_checks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
# shellcheck disable=SC2086  # the words were checked above
exec "$build/$preset/longrun/call_sweep" $tried

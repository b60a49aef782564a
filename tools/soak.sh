#!/bin/bash
# Soaks the plug-in: half of the time in mixed load from several threads, with resets of the data store, live configuration
# and restarts of the pipeline, then half of it in a load that leaves nothing, to see whether memory grows. Prints the
# balance of each round. A minute is an hour of the plug-in's time. Fails when a sum differs or memory grows.
#
#   tools/soak.sh MINUTES [asan|tsan]
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

minutes="${1-}"
preset="${2:-release}"
if [[ ! "$minutes" =~ ^[1-9][0-9]*$ || ! "$preset" =~ ^(release|asan|tsan)$ ]]; then
    echo "usage: tools/soak.sh MINUTES [asan|tsan]" >&2
    exit 2
fi
"$root/tools/build.sh" "$preset" soak
export ASAN_OPTIONS="detect_stack_use_after_return=1:strict_string_checks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
exec "$build/$preset/longrun/soak" $((minutes * 60))

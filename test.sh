#!/bin/bash
# Sets up, builds and runs all tests.
#
#   ./test.sh             release build
#   ./test.sh debug       plain build for a debugger
#   ./test.sh coverage    a build that counts which lines run; tools/coverage.sh prints the counts
#   ./test.sh asan        under the address, undefined and leak sanitizers
#   ./test.sh tsan        under the thread sanitizer
#   ./test.sh fuzz        built by clang, whose lock annotations are checked; the fuzz targets replay their corpora
#
# ZEL_BUILD_DIR  folder in place of build/
# ZEL_JOBS       number of compilers and of tests at a time; without it one for each processor
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/tools/common.sh"

preset="${1:-release}"
case "$preset" in
    release | debug | coverage | asan | tsan) "$root/tools/setup.sh" ;;
    fuzz) "$root/tools/setup.sh" --ci ;;
    *)
        echo "test.sh: unknown preset '$preset' (usage: ./test.sh [release|debug|coverage|asan|tsan|fuzz])" >&2
        exit 2
        ;;
esac
"$root/tools/build.sh" "$preset"

# The tests write their notes to the build folder, and what they wait for has deadlines: one run at a time.
take_turn "$preset/test.lock" "tests of '$preset' run"

export ASAN_OPTIONS="detect_stack_use_after_return=1:strict_string_checks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}"
# Python keeps what it has compiled beside its source otherwise.
export PYTHONDONTWRITEBYTECODE=1
# What a test leaves when it is killed lies in the build folder, and the next run takes it away.
export TMPDIR="$build/$preset/tmp"
rm -rf -- "$TMPDIR"
mkdir -p -- "$TMPDIR"
say "running the tests of '$preset', which takes some minutes"
if ctest --test-dir "$build/$preset" --no-tests=error --output-on-failure -j "${ZEL_JOBS:-$(nproc)}"; then
    say "all tests passed. CONTRIBUTING.md tells how to go on, docs/architecture.md how the code works"
else
    say "tests failed. Only these again: ctest --test-dir $(printf %q "$build/$preset") --rerun-failed --output-on-failure"
    exit 1
fi

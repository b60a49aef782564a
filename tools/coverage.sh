#!/bin/bash
# Builds the preset coverage, runs all its tests (unit tests, end-to-end tests, replays of the fuzz corpora) and every tenth
# failing call, and prints for each folder of src/ the share of lines and branches that ran, then the lines that did not. A
# report that shows the lines is left in build/coverage/report/index.html.
#
# Left out of the branches: the edges that a call takes when it throws, branches on lines without code, and assertions, since
# a failed one ends the process before its counts are written. What cannot run or be counted is listed with its reason in
# tools/coverage_exceptions.txt; a row of that list that no longer holds is an error. Fails when a test fails, a row is
# stale, or a share is below its limit in tools/coverage_report.
#
#   tools/coverage.sh
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
cd "$root"

if [ $# -ne 0 ]; then
    echo "coverage.sh: unknown argument '$1' (usage: tools/coverage.sh)" >&2
    exit 2
fi
tools/setup.sh --coverage
tools/build.sh coverage

build="$build/coverage"
report="$build/report"
find "$build" -name '*.gcda' -delete
rm -rf "$report"
mkdir -p "$report"

# A program of an earlier run adds to what it finds, so the counts start from none.
failed=0
ctest --test-dir "$build" --output-on-failure -j "${ZEL_JOBS:-$(nproc)}" >"$build/tests.log" 2>&1 || failed=1
"$build/longrun/call_sweep" --every 10 >"$build/sweep.log" 2>&1 || failed=1

# The checker compiles the same sources in another form, so what its tests run does not count here.
gcovr --root . --filter 'src/' --object-directory "$build" -j "${ZEL_JOBS:-$(nproc)}" \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details "$report/index.html" --html-title zelreshdl --json "$report/lines.json" \
    "$build/src" >"$build/gcovr.log" 2>&1 || {
    tail -n 20 "$build/gcovr.log" >&2
    echo "coverage.sh: gcovr failed, see $build/gcovr.log" >&2
    exit 1
}

shares=0
tools/coverage_report "$report/lines.json" tools/coverage_exceptions.txt || shares=1
echo "report: $PWD/$report/index.html"

if [ "$failed" -ne 0 ]; then
    sed -n '/The following tests FAILED/,$p' "$build/tests.log" >&2
    cat "$build/sweep.log" >&2
    echo "coverage.sh: a test failed, see $build/tests.log and sweep.log" >&2
    exit 1
fi
exit "$shares"

#!/bin/bash
# Builds the preset coverage, runs all its tests (unit tests, end-to-end tests, replays of the fuzz corpora), and prints for
# each folder of src/ the share of lines and branches that ran. Branches that the compiler makes for exceptions are left
# out. A report that shows the lines is left in build/coverage/report/index.html. Fails when a test fails.
#
#   tools/coverage.sh
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

if [ $# -ne 0 ]; then
    echo "coverage.sh: unknown argument '$1' (usage: tools/coverage.sh)" >&2
    exit 2
fi
tools/setup.sh --coverage
tools/build.sh coverage

build="build/coverage"
report="$build/report"
find "$build" -name '*.gcda' -delete
rm -rf "$report"
mkdir -p "$report"

# A program of an earlier run adds to what it finds, so the counts start from none.
failed=0
ctest --test-dir "$build" --output-on-failure -j "${ZEL_JOBS:-$(nproc)}" >"$build/tests.log" 2>&1 || failed=1

gcovr --root . --filter 'src/' --object-directory "$build" -j "${ZEL_JOBS:-$(nproc)}" \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details "$report/index.html" --html-title zelreshdl --csv "$report/files.csv" \
    "$build/src" >"$build/gcovr.log" 2>&1 || {
    tail -n 20 "$build/gcovr.log" >&2
    echo "coverage.sh: gcovr failed, see $PWD/$build/gcovr.log" >&2
    exit 1
}

# Columns are found by their names: file, lines, lines that ran, branches, branches that ran.
awk -F, '
NR == 1 {
    for (i = 1; i <= NF; i++) column[$i] = i
    next
}
function percent(part, all) { return all > 0 ? 100 * part / all : 100 }
function line(name, l, lc, b, bc) {
    printf "%-14s lines %5.1f %% (%d of %d)  branches %5.1f %% (%d of %d)\n", name, percent(lc, l), lc, l, percent(bc, b), bc, b
}
{
    split($column["filename"], part, "/")
    folder = part[1] "/" part[2]
    if (!(folder in lines)) order[++folders] = folder
    total_lines += $column["line_total"];       lines[folder] += $column["line_total"]
    total_ran += $column["line_covered"];       ran[folder] += $column["line_covered"]
    total_branches += $column["branch_total"];  branches[folder] += $column["branch_total"]
    total_taken += $column["branch_covered"];   taken[folder] += $column["branch_covered"]
}
END {
    for (i = 1; i <= folders; i++) line(order[i], lines[order[i]], ran[order[i]], branches[order[i]], taken[order[i]])
    line("in all", total_lines, total_ran, total_branches, total_taken)
}' "$report/files.csv"
echo "report: $PWD/$report/index.html"

if [ "$failed" -ne 0 ]; then
    sed -n '/The following tests FAILED/,$p' "$build/tests.log" >&2
    echo "coverage.sh: a test failed, see $PWD/$build/tests.log" >&2
    exit 1
fi
